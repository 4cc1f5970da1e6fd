// One send as in the library: a new socket for each datagram.
#include <qiven/udp.h>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include "packets.h"
#include "support/sandbox.h"

namespace bench {

namespace {

constexpr uint16_t kPort = QIVEN_PORT;

sockaddr_in Loopback(uint16_t usPort) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(usPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void SetUp(int fd) {
    const int iOn = 1;
    const sockaddr_in local = Loopback(QIVEN_SOURCE_PORT);
    if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &iOn, sizeof iOn) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &iOn, sizeof iOn) != 0 ||
        bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) != 0)
        Fail("no socket to send from");
}

void SendBy(int fd, const std::string &bytes, const sockaddr_in &to) {
    if (sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to) < 0)
        Fail("cannot send");
}

void Floor(benchmark::State &state) {
    const std::string &bytes = Typical().front().bytes;
    const sockaddr_in to = Loopback(kPort);
    for (auto _ : state) {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        SetUp(fd);
        SendBy(fd, bytes, to);
        close(fd);
    }
}

void KeptSocket(benchmark::State &state) {
    const std::string &bytes = Typical().front().bytes;
    const sockaddr_in to = Loopback(kPort);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    SetUp(fd);
    for (auto _ : state)
        SendBy(fd, bytes, to);
    close(fd);
}

void Qiven(benchmark::State &state) {
    const std::string &bytes = Typical().front().bytes;
    const QIVEN_CONN conn{"127.0.0.1", kPort, 0, nullptr, nullptr};
    QIVEN_NETIF netIf{};
    netIf.ulIP = htonl(INADDR_LOOPBACK);
    for (auto _ : state) {
        const int cb = QIVENUDPSend(nullptr, reinterpret_cast<const unsigned char *>(bytes.data()),
                                    static_cast<int>(bytes.size()), &conn, &netIf, 1);
        if (cb != static_cast<int>(bytes.size())) Fail("cannot send");
    }
}

}  // namespace

}  // namespace bench

int main(int argc, char **argv) {
    using namespace bench;
    benchmark::Initialize(&argc, argv);
    sandbox::Enter();
    // A listener that never reads: its buffer fills up immediately, under the same conditions for all.
    const int fdSink = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(kPort);
    if (bind(fdSink, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) Fail("no listener");
    benchmark::RegisterBenchmark("send/bound/qiven", Qiven);
    benchmark::RegisterBenchmark("send/bound/floor", Floor);
    benchmark::RegisterBenchmark("send/bound/kept socket", KeptSocket);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
