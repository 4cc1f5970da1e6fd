// The receive loop compared with a bare loop, on the loopback interface of a namespace: answers that are
// already queued (drained), an endless stream of answers (flood), and the number of datagrams of a burst that
// survive a slow handler. Measures the processor time of the receiving thread per datagram, which excludes
// the sender and other processes.
#include <qiven/udp.h>
#include <qiven/watch.h>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <functional>
#include <utility>

#include "packets.h"
#include "support/sandbox.h"

namespace bench {

namespace {

constexpr uint16_t kPort = QIVEN_PORT;
constexpr int kBatch = 100;  // fits the receive buffer
constexpr int kBatches = 20;
constexpr int kFlooded = 20'000;
constexpr int kReceiveBufferSize = 65536;

sockaddr_in Address() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int Connected() {
    const sockaddr_in to = Address();
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&to), sizeof to) != 0) Fail("no sender");
    return fd;
}

double ThreadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Controls and observes a loop through its callbacks.
struct Watch {
    std::function<bool()> fnCancel;
    int nHandled = 0;
    int fdAppend = -1;
} watch;

int Cancel() {
    return watch.fnCancel() ? 1 : 0;
}

int Handle(nasinfo *pRecord) {
    benchmark::DoNotOptimize(pRecord);
    ++watch.nHandled;
    static constexpr char szLine[] = "7,300,some-host-name,10.0.0.1,0123456789ab\n";
    if (watch.fdAppend >= 0 && write(watch.fdAppend, szLine, sizeof szLine - 1) < 0) Fail("cannot append");
    return 0;
}

using Loop = void (*)();

void QivenLoop() {
    const QIVEN_CONN conn{"127.0.0.1", kPort, 0, Cancel, nullptr};
    QIVEN_RECV recv{};
    recv.pfnHandler = Handle;
    if (QIVENUDPServer(&conn, &recv, nullptr, nullptr) != 0) Fail("the loop failed");
}

int Listener() {
    const sockaddr_in local = Address();
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBufferSize, sizeof kReceiveBufferSize);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) != 0) Fail("no listener");
    return fd;
}

void Decode(const unsigned char *pBytes, ssize_t cb, nasinfo &record) {
    if (cb > 0 && QIVENPacketReadEncrypted(nullptr, pBytes, static_cast<int>(cb), &record) > 0)
        Handle(&record);
}

// One clock reading, one wait, one receive and the decode per pass.
void BareLoop() {
    static nasinfo record;
    static unsigned char rgBytes[QIVEN_PACKET_MAX];
    const int fd = Listener();
    for (;;) {
        time_t now = time(nullptr);
        benchmark::DoNotOptimize(now);
        if (Cancel() == 1) break;
        pollfd readable{fd, POLLIN, 0};
        if (poll(&readable, 1, 2000) <= 0) continue;
        Decode(rgBytes, recvfrom(fd, rgBytes, sizeof rgBytes, 0, nullptr, nullptr), record);
    }
    close(fd);
}

// The search of libqiven-watch, which decodes answers and merges them into its table.
void WatchLoop() {
    QIVEN_WATCH_CONF conf{};
    conf.cbSize = sizeof conf;
    QIVEN_WATCH *pWatch = nullptr;
    if (QIVENWatchOpen(&pWatch, &conf) != 0) Fail("no search");
    const auto Heard = [pWatch] {
        const QIVEN_WATCH_HOST *pHost = QIVENWatchHost(pWatch, 0);
        return pHost != nullptr ? static_cast<int>(pHost->ullAnswers) : 0;
    };
    int nBefore = 0;
    while (Cancel() == 0) {
        pollfd readable{QIVENWatchFd(pWatch), POLLIN, 0};
        poll(&readable, 1, 2000);
        QIVENWatchDispatch(pWatch);
        while (QIVENWatchNext(pWatch) != nullptr) {
        }
        const int nHeard = Heard();
        watch.nHandled += nHeard - nBefore;
        nBefore = nHeard;
    }
    QIVENWatchClose(pWatch);
}

// Up to 32 datagrams per wait: faster, but time, cancel and query are looked at once per 32 only.
void BatchLoop() {
    constexpr unsigned kMany = 32;
    static nasinfo record;
    static unsigned char rgBytes[kMany][QIVEN_PACKET_MAX];
    mmsghdr rgMessage[kMany]{};
    iovec rgVector[kMany];
    for (unsigned i = 0; i < kMany; ++i) {
        rgVector[i] = {rgBytes[i], sizeof rgBytes[i]};
        rgMessage[i].msg_hdr.msg_iov = &rgVector[i];
        rgMessage[i].msg_hdr.msg_iovlen = 1;
    }
    const int fd = Listener();
    while (Cancel() == 0) {
        pollfd readable{fd, POLLIN, 0};
        if (poll(&readable, 1, 2000) <= 0) continue;
        const int n = recvmmsg(fd, rgMessage, kMany, MSG_DONTWAIT, nullptr);
        for (int i = 0; i < n; ++i)
            Decode(rgBytes[i], rgMessage[i].msg_len, record);
    }
    close(fd);
}

// A batch is sent after the previous one was handled; sending is not measured.
void Drained(benchmark::State &state, Loop loop) {
    const std::string &bytes = Typical().front().bytes;
    const int fd = Connected();
    for (auto _ : state) {
        int nSent = 0;
        double fStart = 0;
        double fUsed = 0;
        watch = {};
        watch.fnCancel = [&] {
            if (watch.nHandled < nSent) return false;
            if (nSent > 0) fUsed += ThreadSeconds() - fStart;
            if (nSent == kBatch * kBatches) return true;
            for (int i = 0; i < kBatch; ++i) {
                if (send(fd, bytes.data(), bytes.size(), 0) < 0) Fail("cannot send");
            }
            nSent += kBatch;
            fStart = ThreadSeconds();
            return false;
        };
        loop();
        state.SetIterationTime(fUsed / nSent);
    }
    close(fd);
}

void Flood(benchmark::State &state, Loop loop) {
    const std::string &bytes = Typical().front().bytes;
    const pid_t pid = fork();
    if (pid == 0) {
        // Many datagrams per call, split by the kernel: a sender of single datagrams is slower than the loop.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int fd = Connected();
        const int cbSegment = static_cast<int>(bytes.size());
        if (setsockopt(fd, SOL_UDP, UDP_SEGMENT, &cbSegment, sizeof cbSegment) != 0) _exit(1);
        std::string many;
        for (int i = 0; i < 60; ++i)
            many += bytes;
        // Without a listener a send fails, which is expected.
        for (;;)
            (void)!send(fd, many.data(), many.size(), 0);
    }
    for (auto _ : state) {
        double fStart = 0;
        watch = {};
        watch.fnCancel = [&] {
            if (fStart == 0 && watch.nHandled >= kBatch) {
                fStart = ThreadSeconds();
                watch.nHandled = 0;
            }
            return fStart != 0 && watch.nHandled >= kFlooded;
        };
        loop();
        state.SetIterationTime((ThreadSeconds() - fStart) / watch.nHandled);
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

// Sends many more datagrams than the buffer holds, while each handler call appends a line with O_SYNC. After
// a pause, a query stops the loop.
[[noreturn]] void SendBurst(const std::string &bytes, int fdGo) {
    constexpr int kBurst = 1000;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int fd = Connected();
    char chGo;
    if (read(fdGo, &chGo, 1) != 1) _exit(1);
    for (int i = 0; i < kBurst; ++i)
        (void)!send(fd, bytes.data(), bytes.size(), 0);
    for (;;) {
        usleep(300'000);
        (void)!send(fd, stQIVENBroadCastV11, sizeof stQIVENBroadCastV11, 0);
    }
}

void Burst(benchmark::State &state, Loop loop, const Packet &packet) {
    double fSurvived = 0;
    for (auto _ : state) {
        int rgEnds[2];
        if (pipe2(rgEnds, O_CLOEXEC) != 0) Fail("no pipe");
        const pid_t pid = fork();
        if (pid == 0) SendBurst(packet.bytes, rgEnds[0]);
        char szPath[] = "qiven-bench-XXXXXX";
        watch = {};
        watch.fdAppend = mkostemp(szPath, O_APPEND | O_SYNC | O_CLOEXEC);
        unlink(szPath);
        // Stops the loop after a pause without datagrams; this time is not measured.
        timespec last{};
        int nSeen = -1;
        watch.fnCancel = [&] {
            if (nSeen < 0 && write(rgEnds[1], "", 1) != 1) Fail("no sender");
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            if (watch.nHandled == nSeen + 1 && nSeen > 0 &&
                (now.tv_sec - last.tv_sec) * 1000 + (now.tv_nsec - last.tv_nsec) / 1'000'000 >= 250)
                return true;
            last = now;
            nSeen = watch.nHandled;
            return false;
        };
        loop();
        fSurvived += watch.nHandled - 1;
        close(watch.fdAppend);
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        close(rgEnds[0]);
        close(rgEnds[1]);
        state.SetIterationTime(1e-9);
    }
    state.counters["survived"] = fSurvived / static_cast<double>(state.iterations());
}

}  // namespace

}  // namespace bench

int main(int argc, char **argv) {
    using namespace bench;
    benchmark::Initialize(&argc, argv);
    sandbox::Enter();
    struct {
        const char *szName;
        Loop loop;
    } const loops[] = {{"qiven", QivenLoop}, {"floor", BareLoop}, {"recvmmsg", BatchLoop}};
    static const Packet packets[] = {Sized(20), Typical().front(), Sized(1400)};
    for (const auto &[szName, loop] : loops) {
        const std::string who = szName;
        benchmark::RegisterBenchmark(("receive/drained/" + who).c_str(), Drained, loop)
            ->UseManualTime()
            ->Iterations(10);
        benchmark::RegisterBenchmark(("receive/flood/" + who).c_str(), Flood, loop)
            ->UseManualTime()
            ->Iterations(2);
        for (const Packet &packet : packets)
            benchmark::RegisterBenchmark(
                ("burst/" + std::to_string(packet.bytes.size()) + '/' + who).c_str(),
                [&packet, loop = loop](benchmark::State &state) { Burst(state, loop, packet); })
                ->UseManualTime()
                ->Iterations(1);
    }
    for (const auto &[szWho, loop] : {std::pair{"qiven", &WatchLoop}, std::pair{"floor", &BareLoop}})
        benchmark::RegisterBenchmark((std::string("merged/flood/") + szWho).c_str(), Flood, loop)
            ->UseManualTime()
            ->Iterations(2);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
