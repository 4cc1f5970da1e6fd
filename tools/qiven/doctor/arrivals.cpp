#include "doctor/arrivals.h"

#include <fmt/format.h>

#include "fields.h"
#include "output/text.h"
#include "packet_walk.h"

namespace qiven::doctor {

namespace {

constexpr size_t kSendersMax = 10000;  // of one interface: senders may be forged

std::string From(const QIVEN_RECEIVED &received) {
    return fmt::format("{} on {}", fields::Dotted(received.ulSource), text::Escape(received.szIfName));
}

void CountUnread(Arrivals &arrivals, const QIVEN_RECEIVED &received) {
    const packet_walk::PacketWalk walk = packet_walk::Walk({received.pbDatagram, received.cbDatagram});
    if (walk.verdict == packet_walk::Verdict::kSealed) {
        if (arrivals.nSealed++ == 0) arrivals.sealedFrom = From(received);
    } else if (arrivals.nJunk++ == 0) {
        arrivals.junkFrom = From(received);
        arrivals.junkReason = walk.reason;
    }
}

void CountAnswer(Arrivals &arrivals, const QIVEN_RECEIVED &received) {
    const auto add = [&received](std::set<uint32_t> &senders) {
        if (senders.size() < kSendersMax) senders.insert(received.ulSource);
    };
    if ((received.ulFlags & QIVEN_RECEIVED_LOCAL) != 0) return add(arrivals.local);
    const std::string name = text::Escape(received.szIfName);
    if ((received.ulFlags & QIVEN_RECEIVED_UNUSED) != 0) return add(arrivals.unused[name]);
    add(arrivals.hosts[name]);
    if ((received.ulFlags & QIVEN_RECEIVED_OFF_LINK) != 0) add(arrivals.offLink[name]);
}

Check JudgeSealed(const Arrivals &arrivals) {
    return {"arrivals", Result::kFault,
            fmt::format("{} sealed packets for other searchers arrived, the first from {}", arrivals.nSealed,
                        arrivals.sealedFrom),
            "the hosts answer another searcher: search again with \"qiven find\", which sends its key, "
            "and check that nothing drops its query on the way to them"};
}

Check JudgeJunk(const Arrivals &arrivals) {
    return {"arrivals", Result::kFault,
            fmt::format("{} packets that cannot be decoded arrived, the first from {} ({})", arrivals.nJunk,
                        arrivals.junkFrom, arrivals.junkReason),
            fmt::format(
                "find the program there that sends to UDP port {}; \"qiven decode --pcap\" shows its packets",
                QIVEN_PORT)};
}

}  // namespace

void Count(Arrivals &arrivals, const QIVEN_RECEIVED &received) {
    if ((received.ulFlags & QIVEN_RECEIVED_OWN) != 0)
        arrivals.own.insert(received.ulIfIndex);
    else if (received.pnasInfo == nullptr)
        CountUnread(arrivals, received);
    else if (fields::IsAnswer(*received.pnasInfo))
        CountAnswer(arrivals, received);
    else
        ++arrivals.nQueries;
}

std::string CountsOf(const std::map<std::string, std::set<uint32_t>> &senders) {
    std::string counts;
    for (const auto &[name, addresses] : senders)
        counts += fmt::format("{}{} ({})", counts.empty() ? "" : ", ", name, addresses.size());
    return counts;
}

Check JudgeArrivals(const Arrivals &arrivals) {
    if (arrivals.hosts.empty() && arrivals.nSealed != 0) return JudgeSealed(arrivals);
    if (arrivals.hosts.empty() && arrivals.nJunk != 0) return JudgeJunk(arrivals);
    Check check{"arrivals", Result::kNote, "no host answered", {}};
    if (!arrivals.hosts.empty()) {
        check.result = Result::kOk;
        check.text = "hosts answered on " + CountsOf(arrivals.hosts);
    }
    const auto note = [&check](const std::string &text) {
        check.text += "; " + text;
        check.result = Result::kNote;
    };
    if (!arrivals.local.empty())
        note("this machine itself answered from " + fields::Dotted(*arrivals.local.begin()));
    if (!arrivals.offLink.empty()) note("from addresses of another network on " + CountsOf(arrivals.offLink));
    if (!arrivals.unused.empty())
        note("hosts answered on interfaces that are left out: " + CountsOf(arrivals.unused));
    if (arrivals.nSealed + arrivals.nJunk != 0)
        note(fmt::format("{} packets sealed for other searchers, {} that cannot be decoded", arrivals.nSealed,
                         arrivals.nJunk));
    if (arrivals.nQueries != 0)
        check.text += fmt::format("; {} queries of other searchers", arrivals.nQueries);
    return check;
}

}  // namespace qiven::doctor
