#include "find/watch.h"

namespace qiven::find {

namespace {

constexpr char kAppeared[] = "appeared";
constexpr char kChanged[] = "changed";
constexpr char kVanished[] = "vanished";

// What the reader does not know yet; null if that is nothing, or may not be told yet.
const char *NewsOf(const Host &host, Clock::time_point since) {
    const bool blSilent = host.heard < since;
    if (!host.blTold) return blSilent || host.blDoubtful ? nullptr : kAppeared;
    if (blSilent) return kVanished;
    return host.blChanged && Clock::now() - host.told >= kChangePause ? kChanged : nullptr;
}

bool Tell(Teller &teller, Report &report, Host &host, const char *szNews) {
    constexpr size_t kLine = 1024;
    if (!IsReady(report) || !rate_limit::Take(teller.lines, rate_limit::Now())) return false;
    const size_t cbRow = Event(report, szNews, host);
    teller.lines.nThousandths -= static_cast<int64_t>(cbRow / kLine) * rate_limit::kToken;
    host.blTold = host.blHeld = true;
    host.blChanged = false;
    host.told = Clock::now();
    return true;
}

// What goes first under a flood of forged hosts, which rarely answer twice.
enum class Rank { kConfirmed, kKnown, kRest };

Rank RankOf(const Host &host, const char *szNews) {
    if (szNews == kAppeared && host.blConfirmed) return Rank::kConfirmed;
    return szNews == kChanged ? Rank::kKnown : Rank::kRest;
}

// One look at every host, which goes on where the last one ended.
void TellRank(Teller &teller, Report &report, Hosts &hosts, Clock::time_point since, Rank rank) {
    // Each rank leaves half of the lines to the next ones.
    const int64_t nReserve = rank == Rank::kRest ? 0 : teller.lines.nThousandths / 2;
    bool blBehind = false;
    for (size_t nLeft = hosts.places.size(); nLeft > 0 && !blBehind; --nLeft) {
        if (teller.uNext >= hosts.places.size()) teller.uNext = 0;
        Host &host = hosts.places[teller.uNext]->second;
        const bool blSilent = host.heard < since;
        const char *szNews = NewsOf(host, since);
        const bool blDue = szNews != nullptr && RankOf(host, szNews) == rank;
        const bool blTold =
            blDue && teller.lines.nThousandths >= nReserve && Tell(teller, report, host, szNews);
        blBehind = blDue && !blTold;
        // The last host takes the place of one that goes.
        if (blSilent && (!host.blTold || (blTold && szNews == kVanished))) {
            Remove(hosts, host);
        } else if (!blBehind) {
            if (!blSilent) ForgetAddresses(hosts, host, since);
            ++teller.uNext;
        }
    }
    teller.blBehind = teller.blBehind || blBehind;
}

}  // namespace

void TellNow(Teller &teller, Report &report, Host &host) {
    const char *szNews = teller.blBehind ? nullptr : NewsOf(host, host.heard);
    if (szNews != nullptr) teller.blBehind = !Tell(teller, report, host, szNews);
}

void TellRest(Teller &teller, Report &report, Hosts &hosts, Clock::time_point since) {
    teller.blBehind = false;
    rate_limit::Refill(teller.lines, rate_limit::Now());
    for (const Rank rank : {Rank::kConfirmed, Rank::kKnown, Rank::kRest})
        TellRank(teller, report, hosts, since, rank);
}

}  // namespace qiven::find
