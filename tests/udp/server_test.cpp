// The receive loop. Everything runs in one thread: the progress callback of a pass
// sends the datagram to be read.
#include <qiven/udp.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>

#include "support/interpose.h"
#include "support/log_capture.h"
#include "support/packets.h"
#include "support/sandbox.h"

// A kernel that accepts every socket option and ignores it.
static bool g_blPretend = false;

extern "C" int __real_setsockopt(int fd, int iLevel, int iName, const void *pValue, socklen_t cbValue);
extern "C" int __wrap_setsockopt(int fd, int iLevel, int iName, const void *pValue, socklen_t cbValue);
extern "C" int __wrap_setsockopt(int fd, int iLevel, int iName, const void *pValue, socklen_t cbValue) {
    return g_blPretend ? 0 : __real_setsockopt(fd, iLevel, iName, pValue, cbValue);
}

namespace {

using Lines = std::vector<std::string>;

Lines g_trace;
int g_nPass;
int g_nLastPass;
std::function<void(int iElapsed)> g_onPass;
const Lines kHandled{"filter nas1", "lock 1", "handle nas1", "lock 0"};

// The filter returns the model in the answer.
std::string Named(uint32_t ulPktType, const std::string &host, uint32_t ulModel = 1) {
    return Basic(ulPktType) + Field(0x11, host) + Number(0x48, ulModel);
}

class Server : public testing::Test {
  protected:
    void SetUp() override {
        sandbox::Enter();
        g_trace.clear();
        g_nPass = 0;
        g_nLastPass = 1000;
        g_onPass = nullptr;
        interpose::clock = {true, 1000, 0, 0, 0, nullptr, 0};
    }
    int Listen(int iTimeout, QIVEN_CONN *pConnSend = nullptr, QIVEN_SEND *pSend = nullptr) {
        const auto pfnCancel = [] { return g_nPass == g_nLastPass ? 1 : 0; };
        QIVEN_CONN conn{"0.0.0.0", QIVEN_PORT, iTimeout, pfnCancel, m_log.Record()};
        return QIVENUDPServer(&conn, &m_recv, pConnSend, pSend);
    }
    static int Progress(int iTimeout, int iElapsed, int iZero) {
        EXPECT_EQ(0, iZero);
        EXPECT_LE(0, iTimeout);
        ++g_nPass;
        if (g_onPass) g_onPass(iElapsed);
        return -1;
    }
    static int Trace(const std::string &what) { return g_trace.push_back(what), -1; }
    QIVEN_RECV m_recv{[](int iLock) { return Trace("lock " + std::to_string(iLock)); },
                      [](nasinfo *pRecord) {
                          Trace(std::string("filter ") + pRecord->szHostName);
                          return static_cast<int>(pRecord->ulModel);
                      },
                      [](nasinfo *pRecord) { return Trace(std::string("handle ") + pRecord->szHostName); },
                      Progress};
    LogCapture m_log;
};

TEST_F(Server, EndsWhenMoreThanTheLimitHasPassed) {
    for (const int nSecondsPerDatagram : {0, 1}) {  // nothing comes; a datagram a second comes
        std::vector<int> elapsed;
        interpose::clock.nSecondsPerDatagram = nSecondsPerDatagram;
        g_onPass = [&](int iElapsed) {
            elapsed.push_back(iElapsed);
            if (nSecondsPerDatagram == 1) SendTo("junk");
        };
        EXPECT_EQ(0, Listen(4));
        EXPECT_EQ(nSecondsPerDatagram == 1 ? (std::vector{0, 1, 2, 3, 4}) : (std::vector{0, 2, 4}), elapsed);
    }
    g_onPass = nullptr;
    g_nPass = 0;
    g_nLastPass = 500;
    EXPECT_EQ(0, Listen(0));  // no limit: only cancel ends it
    EXPECT_EQ(500, g_nPass);
}

TEST_F(Server, QueriesLeaveAtTheirTimes) {
    sandbox::PrivateDir("/etc");
    sandbox::AddEthernet("eth0", "02:00:00:00:00:01", "10.0.0.1/24 brd +");
    const struct {
        int iPeriod, nSecondsPerDatagram;
        std::vector<int> expected;
    } cases[] = {{3, 1, {1, 4, 7, 10}}, {3, 0, {2, 4, 8, 10}}, {-1, 1, {0}}, {0, 1, {}}, {-2, 1, {}}};
    for (const auto &c : cases) {
        // The client calls its cancel function before it sends.
        static std::vector<int> queries;
        static int iNow;
        queries.clear();
        interpose::clock.nSecondsPerDatagram = c.nSecondsPerDatagram;
        g_onPass = [&c](int iElapsed) {
            iNow = iElapsed;
            if (c.nSecondsPerDatagram == 1) SendTo("junk");
        };
        nasinfo record{};
        record.ulPktType = QIVEN_PKT_QUERY;
        QIVEN_SEND send{&record, 2, {0x01, 0xA4}};
        QIVEN_CONN query{"10.0.0.9", 9998, c.iPeriod, [] { return queries.push_back(iNow), 0; }, nullptr};
        EXPECT_EQ(0, Listen(10, &query, &send));
        EXPECT_EQ(c.expected, queries) << c.iPeriod;
    }
    m_log.Take();
    QIVEN_CONN query{"10.0.0.9", 9998, -1, nullptr, m_log.Record()};
    EXPECT_EQ(-1, Listen(10, &query, nullptr));
    EXPECT_EQ((Lines{Invalid("udp", "NULL != pqivenSend"), "1|udp:# broadcast query packet error!\n"}),
              m_log.Take());
}

TEST_F(Server, OneDatagramPerPassGoesThroughFilterLockAndHandler) {
    std::string full = Named(2, "cut");
    while (8192 - full.size() > 514)
        full += Field(0xFA, std::string(255, 'x'));
    full += Field(0xFA, std::string(200, 'x'));
    full += Field(0xFA, std::string(8192 - full.size() - 2, 'x')) + std::string(900, 'x');
    const std::string sealed = kSealedHeader + " sealed";
    const Lines datagrams{
        Named(2, "nas1"), Basic(3),        Named(1, "zero", 0), "junk", "", Named(6, "two", 2), full,
        sealed,           Named(2, "nas2")};
    g_nLastPass = static_cast<int>(datagrams.size());
    interpose::clock.nSecondsPerDatagram = 1;
    g_onPass = [&](int iElapsed) { SendTo(datagrams[static_cast<size_t>(iElapsed)]); };
    EXPECT_EQ(0, Listen(100));
    EXPECT_EQ(
        (Lines{"filter nas1", "lock 1", "handle nas1", "lock 0", "filter zero", "filter two", "filter cut",
               "lock 1", "handle cut", "lock 0", "filter nas2", "lock 1", "handle nas2", "lock 0"}),
        g_trace);
    const Lines messages = m_log.Take();
    EXPECT_EQ(3, std::count(messages.begin(), messages.end(), "1|udp:# PacketRead Error! ret=[0]\n"));
}

TEST_F(Server, DescriptorsAbove1024AreWaitedOn) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit more{std::min<rlim_t>(limit.rlim_max, 2000), limit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &more));
    std::vector<int> filler;
    do
        filler.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    while (filler.back() >= 0 && filler.back() < 1030);
    ASSERT_LE(1030, filler.back());
    interpose::clock.nSecondsPerDatagram = 1;
    g_onPass = [](int /*iElapsed*/) { SendTo(Named(2, "nas1")); };
    g_nLastPass = 1;
    EXPECT_EQ(0, Listen(1));
    EXPECT_EQ(kHandled, g_trace);
    for (const int fd : filler)
        close(fd);
}

TEST_F(Server, ARefusedReadDoesNotSpin) {
    std::vector<int> elapsed;
    interpose::clock.iReadError = EPERM;
    g_onPass = [&](int iElapsed) {
        elapsed.push_back(iElapsed);
        if (g_nPass != 5) return;
        interpose::clock.iReadError = 0;
        SendTo(Named(2, "nas1"));
    };
    g_nLastPass = 7;
    EXPECT_EQ(0, Listen(0));
    EXPECT_EQ((std::vector{0, 0, 2, 4, 6, 6, 8}), elapsed);
    EXPECT_EQ(kHandled, g_trace);
    EXPECT_EQ(Lines{"2|udp:# recvfrom error! errno: 1 [Operation not permitted]\n"}, m_log.Take());
}

// Datagrams that the kernel drops in the read call: too long for it to check their checksums earlier.
[[noreturn]] void SendBadChecksums(useconds_t usPause) {
    const int fd = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_UDP);
    const uint16_t rgBad[60] = {htons(9), htons(QIVEN_PORT), htons(sizeof rgBad), htons(0xBAD)};
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    for (const time_t end = time(nullptr) + 10; time(nullptr) < end; usleep(usPause))
        for (int i = 0; i < 20; ++i)
            sendto(fd, rgBad, sizeof rgBad, 0, reinterpret_cast<sockaddr *>(&to), sizeof to);
    _exit(0);
}

// Time limit and cancel work regardless of the kernel's support for socket options, with and without bad
// datagrams from a stranger, and a signal whose handler restarts system calls starts the next pass.
TEST_F(Server, NothingHoldsItUp) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    interpose::clock.blVirtual = false;
    const struct {
        bool blPretend;
        int usPause, msSignals, nLastPass, iTimeout, nSecondsMax;
    } cases[] = {
        {false, -1, 50, 5, 0, 3},  // five undisturbed waits last ten seconds
        {true, 400'000, 50, 5, 0, 3},
        {true, 400'000, 0, 2, 0, 5},  // one wait
        {true, 0, 0, 1000, 1, 5},     // one wait, at most
    };
    for (const auto &c : cases) {
        const pid_t pid = c.usPause < 0 ? -1 : fork();
        if (pid == 0) SendBadChecksums(static_cast<useconds_t>(c.usPause));
        g_blPretend = c.blPretend;
        g_nPass = 0;
        g_nLastPass = c.nLastPass;
        const itimerval every{{0, c.msSignals * 1000}, {0, c.msSignals * 1000}};
        const itimerval never{};
        const time_t start = time(nullptr);
        setitimer(ITIMER_REAL, &every, nullptr);
        EXPECT_EQ(0, Listen(c.iTimeout));
        setitimer(ITIMER_REAL, &never, nullptr);
        EXPECT_GE(c.nSecondsMax, time(nullptr) - start) << c.usPause << ' ' << c.msSignals;
        EXPECT_GE(c.nLastPass, g_nPass);
        g_blPretend = false;
        if (pid > 0) kill(pid, SIGKILL);
        if (pid > 0) waitpid(pid, nullptr, 0);
        EXPECT_EQ(Lines{}, m_log.Take());
    }
}

}  // namespace
