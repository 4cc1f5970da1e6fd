// A search on simulated segments: the events, and recovery from failures.
#include <qiven/keys.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

#include "support/capture.h"
#include "support/failing_calls.h"
#include "support/packets.h"
#include "watch/cable.h"

namespace {

std::string Dotted(uint32_t ulAddress) {
    return inet_ntoa({ulAddress});
}

std::string StateName(uint32_t ulState) {
    static constexpr const char *kNames[] = {"used", "failed",     "no-address", "no-carrier",
                                             "down", "unsuitable", "left-out",   "gone"};
    return kNames[ulState];
}

std::string DescribeHost(const QIVEN_WATCH_HOST &host) {
    std::string text = std::to_string(host.ulHost) + ":" + host.pnasInfo->szHostName;
    for (uint32_t i = 0; i < host.nAddresses; ++i) {
        const QIVEN_WATCH_ADDRESS &address = host.rgAddress[i];
        text += std::string(i == 0 ? "@" : "+") + address.szIfName + "/" + Dotted(address.ulIP);
        if ((address.ulFlags & QIVEN_ADDRESS_DIFFERS) != 0) text += "!" + Dotted(address.ulSource);
        if ((address.ulFlags & QIVEN_ADDRESS_OFF_LINK) != 0) text += "?";
        if ((address.ulFlags & QIVEN_ADDRESS_SEALED) != 0) text += "*";
    }
    return text;
}

std::string Describe(const QIVEN_WATCH_EVENT &event) {
    switch (event.ulType) {
        case QIVEN_WATCH_APPEARED:
            return "appeared " + DescribeHost(*event.pHost);
        case QIVEN_WATCH_CHANGED:
            return "changed " + DescribeHost(*event.pHost) + " was " +
                   (event.pnasInfoWas != nullptr ? event.pnasInfoWas->szHostName : "same");
        case QIVEN_WATCH_VANISHED:
            return "vanished " + DescribeHost(*event.pHost);
        case QIVEN_WATCH_CONFLICT:
            return "conflict " + DescribeHost(*event.pHost) + " " + DescribeHost(*event.pHostOther);
        case QIVEN_WATCH_LOST:
            return "lost";
        case QIVEN_WATCH_INTERFACE:
            return std::string("interface ") + event.pInterface->szIfName + " " +
                   StateName(event.pInterface->ulState);
        case QIVEN_WATCH_ROUND:
            return "round " + std::to_string(event.ulRound) + " asked " + std::to_string(event.nAsked) +
                   (event.nNotAsked > 0 ? " not " + std::to_string(event.nNotAsked) : "") + " new " +
                   std::to_string(event.nNew);
        case QIVEN_WATCH_SETTLED:
            return "settled";
        default:
            return "full";
    }
}

using Lines = std::vector<std::string>;
constexpr int kLongest = 20'000;  // milliseconds, on a machine that is busy

struct Search {
    QIVEN_WATCH *p = nullptr;
    Lines lines, history;
    uint64_t ullSeq = 0, ullLost = 0;
    unsigned nAsked = 0, nNew = 0;

    explicit Search(QIVEN_WATCH_CONF conf = {}) {
        conf.cbSize = sizeof conf;
        conf.pfnInterface = NotFarEnds;
        EXPECT_EQ(0, QIVENWatchOpen(&p, &conf));
    }
    ~Search() { QIVENWatchClose(p); }
    Search(const Search &) = delete;
    Search &operator=(const Search &) = delete;

    void TakeAll() {
        while (const QIVEN_WATCH_EVENT *pEvent = QIVENWatchNext(p)) {
            lines.push_back(Describe(*pEvent));
            history.push_back(lines.back());
            EXPECT_EQ(++ullSeq, pEvent->ullSeq);
            nAsked = pEvent->ulType == QIVEN_WATCH_ROUND ? pEvent->ulRound : nAsked;
            nNew += pEvent->nNew;
            ullLost += pEvent->ulType == QIVEN_WATCH_LOST ? pEvent->ullLost : 0;
        }
    }
    // Runs like a program, for a time or until a condition holds.
    Lines Run(
        int ms, const std::function<bool()> &fnUntil = [] { return false; }) {
        timespec start{};
        clock_gettime(CLOCK_MONOTONIC, &start);
        for (;;) {
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            const long msPassed =
                (now.tv_sec - start.tv_sec) * 1000 + (now.tv_nsec - start.tv_nsec) / 1000000;
            TakeAll();
            if (msPassed >= ms || fnUntil()) break;
            WaitReadable(QIVENWatchFd(p), static_cast<int>(ms - msPassed));
            EXPECT_EQ(0, QIVENWatchDispatch(p));
        }
        return std::exchange(lines, {});
    }
    // Until so many datagrams of others were received and looked at.
    Lines Hear(uint64_t n) {
        return Run(kLongest, [&] {
            const QIVEN_COUNTS counts = Counts();
            return counts.ullReceived - counts.ullOwn >= n && QIVENWatchTimeout(p) != 0;
        });
    }
    Lines RunUntil(const std::string &line) {
        Lines seen =
            Run(kLongest, [&] { return std::find(lines.begin(), lines.end(), line) != lines.end(); });
        EXPECT_NE(seen.end(), std::find(seen.begin(), seen.end(), line)) << line;
        return seen;
    }
    QIVEN_COUNTS Counts() const {
        return CountsBy([this](QIVEN_COUNTS *pCounts) { return QIVENWatchCounts(p, pCounts); });
    }
};

std::string Host(const std::string &name, const std::string &address, const std::string &mac,
                 const std::string &ident = "id") {
    return Answer(2, name, address, ident) + Field(0x7C, mac);
}

TEST(Watch, FindsHostsWhereverTheyAre) {
    EnterMachine();
    const Cable lan0("lan0", "10.9.0.1/24");
    const Cable lan1("lan1", "10.8.0.1/24");
    const Capture capture("w-lan0");
    Search search;
    EXPECT_EQ((Lines{"interface lan0 used", "interface lan1 used"}), search.RunUntil("interface lan1 used"));
    const struct {
        const Cable &cable;
        std::string payload, from;
        Lines told;
    } rows[] = {
        {lan0, Host("nas", "10.9.0.7", "aa"), "10.9.0.7", {"appeared 1:nas@lan0/10.9.0.7"}},
        {lan0, Host("liar", "10.9.0.9", "bb", "b"), "10.9.0.8", {"appeared 2:liar@lan0/10.9.0.9!10.9.0.8"}},
        {lan1, Host("far", "10.9.0.3", "cc", "c"), "10.9.0.3", {"appeared 3:far@lan1/10.9.0.3?"}},
        {lan0, Host("double", "10.9.0.4", "d0", "d"), "10.9.0.4", {"appeared 4:double@lan0/10.9.0.4"}},
        // These changes are held for a second.
        {lan0, Host("double", "10.9.0.5", "d1", "d"), "10.9.0.5", {}},
        {lan1, Host("double", "10.8.0.4", "d2", "d"), "10.8.0.4", {}},
        {lan0, Host("nas", "10.9.0.7", "aa"), "10.9.0.7", {}},
        {lan0,
         Host("clone", "10.9.0.6", "ee"),
         "10.9.0.6",
         {"appeared 5:clone@lan0/10.9.0.6", "conflict 5:clone@lan0/10.9.0.6 1:nas@lan0/10.9.0.7"}},
        {lan0, Basic(1), "10.9.0.6", {}},
        {lan0, "junk", "10.9.0.6", {}},
    };
    uint64_t nSent = 0;
    for (const auto &row : rows) {
        row.cable.Send(row.payload, row.from);
        Lines told = search.Hear(++nSent);
        std::erase_if(told, [](const std::string &line) { return line.starts_with("round"); });
        EXPECT_EQ(row.told, told) << row.payload;
    }
    Lines last = search.RunUntil("settled");
    EXPECT_EQ("settled", last.back());
    EXPECT_EQ(1, std::count(last.begin(), last.end(),
                            "changed 4:double@lan0/10.9.0.4+lan0/10.9.0.5+lan1/10.8.0.4 was same"));
    EXPECT_EQ(5U, search.nNew);
    EXPECT_GE(search.nAsked, 2U);
    // The queries were sent and identify the searcher.
    const auto Queries = [&capture] {
        std::vector<Datagram> seen = capture.Take();
        std::erase_if(seen, [](const Datagram &datagram) { return datagram.address != "10.9.0.1"; });
        for (const Datagram &query : seen) {
            EXPECT_NE(std::string::npos, query.payload.find("\x01\x04\x01"));
            EXPECT_NE(std::string::npos, query.payload.find("\xC4\x40"));
        }
        return seen.size();
    };
    EXPECT_EQ(search.nAsked, Queries());
    std::string listed;
    for (const QIVEN_WATCH_HOST *p = nullptr;
         (p = QIVENWatchHost(search.p, p != nullptr ? p->ulHost : 0)) != nullptr;)
        listed += std::to_string(p->ulHost) + "/" + std::to_string(p->ulConflict) + "/" +
                  std::to_string(p->ullAnswers) + " ";
    EXPECT_EQ("1/5/2 2/0/1 3/0/1 4/0/3 5/1/1 ", listed);
    const QIVEN_COUNTS counts = search.Counts();
    EXPECT_EQ(1U, counts.ullRefused);
    EXPECT_EQ(1U, counts.ullOtherType);
    EXPECT_EQ(-1, QIVENWatchTimeout(search.p));
    EXPECT_EQ(0, QIVENWatchQuery(search.p));
    EXPECT_GT(QIVENWatchTimeout(search.p), 0);
    const unsigned nBefore = search.nAsked;
    search.RunUntil("settled");
    EXPECT_EQ(search.nAsked - nBefore, Queries());
}

// A loop that takes one thing each time it is woken gets everything.
TEST(Watch, StaysReadableWhileThereIsSomethingToTake) {
    constexpr unsigned kHosts = 20;
    EnterMachine();
    const Cable lan0("lan0", "10.9.0.1/24");
    const QIVEN_ENDPOINT_CONF conf{sizeof conf, 0, 1U << QIVEN_PKT_ANSWER, NotFarEnds, nullptr};
    QIVEN_ENDPOINT *pEndpoint = nullptr;
    ASSERT_EQ(0, QIVENEndpointOpen(&pEndpoint, &conf));
    Search search;
    for (unsigned i = 0; i < kHosts; ++i)
        lan0.Send(Host("h", "10.9.0.7", "aa", "i" + std::to_string(i)), "10.9.0.7");
    unsigned nReceived = 0;
    for (int i = 0; i < 200 && nReceived < kHosts && WaitReadable(QIVENEndpointFd(pEndpoint), 1000); ++i)
        nReceived += QIVENEndpointReceive(pEndpoint) != nullptr ? 1 : 0;
    EXPECT_EQ(kHosts, nReceived);
    QIVENEndpointClose(pEndpoint);
    unsigned nAppeared = 0;
    for (int i = 0; i < 200 && nAppeared < kHosts && WaitReadable(QIVENWatchFd(search.p), 1000); ++i) {
        const QIVEN_WATCH_EVENT *pEvent = QIVENWatchNext(search.p);
        if (pEvent == nullptr) QIVENWatchDispatch(search.p);
        nAppeared += pEvent != nullptr && pEvent->ulType == QIVEN_WATCH_APPEARED ? 1 : 0;
        search.ullSeq += pEvent != nullptr ? 1 : 0;
    }
    EXPECT_EQ(kHosts, nAppeared);
    // And it is not woken for nothing.
    unsigned nWoken = 0;
    search.Run(200, [&nWoken] { return ++nWoken > 1000; });
    EXPECT_LT(nWoken, 50U);
}

// Datagrams without space in the sockets are reported as lost, and the query is repeated.
TEST(Watch, AsksAgainForWhatWasLost) {
    EnterMachine();
    const Cable lan0("lan0", "10.9.0.1/24");
    Search search;
    // Then the second query is out, usually the last one.
    search.Run(kLongest, [&] { return search.nAsked == 1; });
    constexpr unsigned kSent = 12'000;
    for (unsigned i = 0; i < kSent; ++i)
        lan0.Send(Host("h", "10.9.0.7", "aa", "i" + std::to_string(i)), "10.9.0.7");
    search.RunUntil("settled");
    const QIVEN_COUNTS counts = search.Counts();
    EXPECT_GT(counts.ullLost, 0U);
    EXPECT_EQ(counts.ullLost, search.ullLost);
    // Our own queries are received as well, or lost like other datagrams.
    EXPECT_EQ(kSent + search.nAsked, counts.ullReceived + counts.ullLost);
    EXPECT_GE(search.nAsked, 3U);
}

TEST(Watch, FollowsTheInterfaces) {
    EnterMachine();
    QIVEN_WATCH_CONF conf{};
    conf.ulQueryMs = 200;
    conf.ulVanishMs = 700;
    conf.ulLimitMs = 1;
    Search search(conf);
    EXPECT_EQ((Lines{"round 1 asked 0 new 0", "settled"}), search.RunUntil("settled"));
    auto pCable = std::make_unique<Cable>("lan0", "10.9.0.1/24");
    const Capture capture("w-lan0");
    search.RunUntil("interface lan0 used");
    bool blAsked = false;
    search.Run(kLongest, [&] { return blAsked = blAsked || !capture.Take().empty(); });
    EXPECT_TRUE(blAsked);
    pCable->Send(Host("nas", "10.9.0.7", "aa"), "10.9.0.7");
    search.RunUntil("appeared 1:nas@lan0/10.9.0.7");
    sandbox::Run("ip address del 10.9.0.1/24 dev lan0");
    search.RunUntil("interface lan0 no-address");
    sandbox::Run("ip address add 10.9.0.2/24 brd + dev lan0");
    search.RunUntil("interface lan0 used");
    // A query that cannot be sent is reported once and repeated; the other interface is not affected.
    const Cable lan1("lan1", "10.8.0.1/24");
    search.RunUntil("interface lan1 used");
    // After some rounds the new interface no longer has queries of its own; the next one is for both.
    const unsigned nAsked = search.nAsked;
    search.Run(kLongest, [&] { return search.nAsked >= nAsked + 4; });
    FailingCallsArm("sendmsg", 1, EPERM);
    search.RunUntil("interface lan0 failed");
    search.RunUntil("interface lan0 used");
    const Lines &all = search.history;
    search.Run(kLongest, [&] {
        return std::find(all.begin(), all.end(), "vanished 1:nas@lan0/10.9.0.7") != all.end();
    });
    EXPECT_EQ(1, std::count(all.begin(), all.end(), "vanished 1:nas@lan0/10.9.0.7"));
    sandbox::Run("ip link del lan0");
    search.RunUntil("interface lan0 gone");
    sandbox::Run(
        "k=dummy; ip link add probe type $k 2>/dev/null || k=ifb; for i in $(seq 300); do echo link add "
        "many$i type $k; echo link set many$i up; "
        "echo address add 10.7.$((i / 200)).$((i % 200 + 1))/32 dev many$i; done | ip -batch -");
    const Lines lines = search.Run(kLongest, [&] {
        return std::any_of(search.lines.begin(), search.lines.end(),
                           [](const std::string &line) { return line.ends_with(" asked 301 new 0"); });
    });
    EXPECT_EQ(300, std::count_if(lines.begin(), lines.end(), [](const std::string &line) {
                  return line.starts_with("interface many") && line.ends_with(" used");
              }));
    EXPECT_TRUE(lines.back().ends_with(" asked 301 new 0")) << lines.back();
}

// Answers of known hosts allocate no memory.
TEST(Watch, AllocatesNothingForAKnownHost) {
    EnterMachine();
    const Cable lan0("lan0", "10.9.0.1/24");
    Search search;
    const auto SendAll = [&lan0] {
        for (unsigned i = 0; i < 500; ++i)
            lan0.Send(Host("h", "10.9.0.7", "aa", "i" + std::to_string(i)), "10.9.0.7");
    };
    SendAll();
    search.Hear(500);
    SendAll();
    FailingCallsArm("memory", 100, ENOMEM);  // a query may be due meanwhile
    for (QIVEN_COUNTS counts{}; counts.ullReceived - counts.ullOwn < 1000;) {
        QIVENWatchDispatch(search.p);
        while (QIVENWatchNext(search.p) != nullptr) {
        }
        counts.cbSize = sizeof counts;
        QIVENWatchCounts(search.p, &counts);
    }
    EXPECT_EQ(0, FailingCallsDisarm());
    EXPECT_EQ(1000U, search.Counts().ullReceived - search.Counts().ullOwn);
}

// Invented hosts, junk, junk that looks sealed, and one host with ever new addresses, names and keys. Hosts
// that were there stay, memory keeps its bound, and no call takes long: of the processor's time, because
// others may have the processor meanwhile. QIVEN_LONG=1 sends a million datagrams.
TEST(Watch, OutlivesStrangers) {
    constexpr unsigned kGenuine = 50;
    constexpr uint64_t kTable = 4 << 20, kBeside = 10 << 20;
    const unsigned nStrange = getenv("QIVEN_LONG") != nullptr ? 1'000'000 : 20'000;
    EnterMachine();
    const Cable lan0("lan0", "10.9.0.1/24");
    QIVEN_WATCH_CONF conf{};
    conf.cbMemoryMax = kTable;
    Search search(conf);
    const auto SendGenuine = [&lan0](unsigned i) {
        const std::string number = std::to_string(i % kGenuine);
        lan0.Send(Host("genuine" + number, "10.9.0.7", "a" + number, "g" + number), "10.9.0.7");
    };
    for (unsigned i = 0; i < kGenuine; ++i)
        SendGenuine(i);
    search.Hear(kGenuine);
    std::atomic<bool> blOver = false;
    std::thread strangers([&] {
        const std::string sealed(reinterpret_cast<const char *>(stQIVENHeaderEncrypted), 8);
        for (unsigned i = 0; i < nStrange; ++i) {
            const std::string number = std::to_string(i);
            const std::string from = "10.9.0." + std::to_string(i % 200 + 20);
            const std::string payloads[] = {Host("forged" + number, from, "f" + number, number),
                                            "junk" + number, sealed + std::string(120, static_cast<char>(i)),
                                            Host("victim" + number, from, "v" + number, "victim") +
                                                Field(0xC4, std::string(64, "0123456789abcdef"[i % 16]))};
            lan0.Send(payloads[i % 4], from);
            if (i % 100 == 0) SendGenuine(i / 100);
        }
        blOver = true;
    });
    const auto UsedUs = [] {
        timespec now{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return now.tv_sec * 1'000'000 + now.tv_nsec / 1000;
    };
    long usLongest = 0;
    uint64_t cbMost = 0;
    unsigned nVanished = 0;
    while (!blOver || WaitReadable(QIVENWatchFd(search.p), 100)) {
        const long usBefore = UsedUs();
        QIVENWatchDispatch(search.p);
        usLongest = std::max(usLongest, UsedUs() - usBefore);
        cbMost = std::max(cbMost, search.Counts().cbMemory);
        while (const QIVEN_WATCH_EVENT *pEvent = QIVENWatchNext(search.p)) {
            const bool blGenuine = pEvent->pHost != nullptr && pEvent->pHost->ulHost <= kGenuine;
            nVanished += pEvent->ulType == QIVEN_WATCH_VANISHED && blGenuine ? 1 : 0;
        }
    }
    strangers.join();
    EXPECT_EQ(0U, nVanished);
    EXPECT_LE(cbMost, kTable + kBeside);
    EXPECT_LT(usLongest, 20'000);
    unsigned nGenuine = 0;
    for (const QIVEN_WATCH_HOST *p = nullptr;
         (p = QIVENWatchHost(search.p, p != nullptr ? p->ulHost : 0)) != nullptr;)
        nGenuine += std::string(p->pnasInfo->szHostName).starts_with("genuine") ? 1 : 0;
    EXPECT_EQ(kGenuine, nGenuine);
    EXPECT_GT(search.Counts().ullLeftOut, 0U);
}

size_t OpenDescriptors() {
    const auto entries = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

// Each call fails once at each position: the open fails with that error, or the
// host is found; nothing is leaked.
TEST(Watch, OutlivesEveryFailingCall) {
    EnterMachine();
    const Cable lan0("lan0", "10.9.0.1/24");
    const struct {
        const char *szCall;
        int iErrno;
        bool blOpens;  // the search works despite any failure
    } rows[] = {
        {"memory", ENOMEM, false},         {"socket", EMFILE, false},       {"bind", EACCES, false},
        {"setsockopt", ENOMEM, false},     {"getsockopt", ENOMEM, true},    {"sendmsg", EPERM, true},
        {"recvmmsg", EINTR, true},         {"recvmmsg", ENOMEM, true},      {"send", ENOBUFS, false},
        {"recv", ENOBUFS, true},           {"recv", EINTR, true},           {"epoll_create1", EMFILE, false},
        {"epoll_ctl", ENOSPC, false},      {"epoll_wait", EINTR, true},     {"timerfd_create", EMFILE, false},
        {"timerfd_settime", EINVAL, true}, {"mprotect", ENOMEM, true},      {"mlock", ENOMEM, true},
        {"getrandom", EINTR, true},        {"clock_gettime", EINVAL, true},
    };
    QIVEN_WATCH_CONF conf{};
    conf.cbSize = sizeof conf;
    conf.pfnInterface = NotFarEnds;
    QIVENProcessKeyInit();  // descriptors that libsodium keeps open
    QIVENProcessKeyCleanup();
    for (const auto &row : rows) {
        for (int n = 1;; ++n) {
            const size_t nDescriptors = OpenDescriptors();
            const long nHeld = FailingCallsHeld();
            QIVEN_WATCH *p = nullptr;
            FailingCallsArm(row.szCall, n, row.iErrno);
            int iResult = QIVENWatchOpen(&p, &conf);
            bool blFound = false;
            for (int i = 0; iResult == 0 && i < 4; ++i) {
                FailingCallsSuspend(1);
                lan0.Send(Host("nas", "10.9.0.7", "aa"), "10.9.0.7");
                FailingCallsSuspend(-1);
                EXPECT_EQ(0, QIVENWatchDispatch(p));
                while (const QIVEN_WATCH_EVENT *pEvent = QIVENWatchNext(p))
                    blFound |= pEvent->ulType == QIVEN_WATCH_APPEARED;
            }
            QIVENWatchClose(p);
            const bool blFailed = FailingCallsDisarm() != 0;
            EXPECT_EQ(nDescriptors, OpenDescriptors()) << row.szCall << " " << n;
            // A page of the secret key that cannot be unprotected is leaked.
            EXPECT_LE(FailingCallsHeld(), nHeld + (row.szCall == std::string("mprotect") ? 1 : 0))
                << row.szCall << " " << n;
            EXPECT_EQ(iResult == 0, blFound) << row.szCall << " " << n << " " << iResult;
            EXPECT_TRUE(iResult == 0 || iResult == -ENOKEY || !row.blOpens) << row.szCall << " " << n;
            if (!blFailed) {
                EXPECT_GT(n, 1) << row.szCall;
                break;
            }
            ASSERT_LT(n, 2000) << row.szCall;
        }
    }
}

TEST(Watch, RefusesWhatItCannotDo) {
    QIVEN_COUNTS counts{};
    EXPECT_EQ(-EINVAL, QIVENWatchOpen(nullptr, nullptr));
    EXPECT_EQ(-EINVAL, QIVENWatchFd(nullptr));
    EXPECT_EQ(-1, QIVENWatchTimeout(nullptr));
    EXPECT_EQ(-EINVAL, QIVENWatchDispatch(nullptr));
    EXPECT_EQ(nullptr, QIVENWatchNext(nullptr));
    EXPECT_EQ(-EINVAL, QIVENWatchQuery(nullptr));
    EXPECT_EQ(nullptr, QIVENWatchHost(nullptr, 0));
    EXPECT_EQ(nullptr, QIVENWatchInterface(nullptr, 0));
    EXPECT_EQ(-EINVAL, QIVENWatchCounts(nullptr, &counts));
    QIVENWatchClose(nullptr);
}

}  // namespace
