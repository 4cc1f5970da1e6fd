// A minimal search: bind, broadcast one query on every interface, print the name in each answer. It does not
// merge answers, has no options and runs until it is killed. `qiven find` is compared with it.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace {

constexpr unsigned short kPort = 9999;
constexpr int kHeader = 8;
constexpr unsigned char kFieldName = 0x11;
constexpr unsigned char kQuery[] = {0x12, 0x34, 0x56, 0x78, 'T',  'A', 'V',  'O',  0x01, 4,
                                    1,    0,    0,    0,    0xA4, 4,   0x00, 0x00, 0x02, 0x01};

template <typename T>
const sockaddr *Generic(const T &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

void Ask(const ifaddrs &card) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int iOn = 1;
    setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &iOn, sizeof iOn);
    setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, card.ifa_name, static_cast<socklen_t>(strlen(card.ifa_name)));
    sockaddr_in everybody{};
    everybody.sin_family = AF_INET;
    everybody.sin_port = htons(kPort);
    everybody.sin_addr.s_addr = INADDR_BROADCAST;
    sendto(fd, kQuery, sizeof kQuery, 0, Generic(everybody), sizeof everybody);
    close(fd);
}

void AskAll() {
    ifaddrs *pCards = nullptr;
    if (getifaddrs(&pCards) != 0) return;
    for (const ifaddrs *pCard = pCards; pCard != nullptr; pCard = pCard->ifa_next) {
        const bool blInternet = pCard->ifa_addr != nullptr && pCard->ifa_addr->sa_family == AF_INET;
        if (blInternet && (pCard->ifa_flags & IFF_LOOPBACK) == 0) Ask(*pCard);
    }
    freeifaddrs(pCards);
}

// Fields are identifier, length, bytes. Prints the name, if there is one, as a line.
void PrintName(const unsigned char *pbPacket, ssize_t cbPacket) {
    for (ssize_t i = kHeader; i + 2 <= cbPacket && i + 2 + pbPacket[i + 1] <= cbPacket;
         i += 2 + pbPacket[i + 1]) {
        if (pbPacket[i] != kFieldName) continue;
        char szLine[256];
        memcpy(szLine, pbPacket + i + 2, pbPacket[i + 1]);
        szLine[pbPacket[i + 1]] = '\n';
        if (write(STDOUT_FILENO, szLine, pbPacket[i + 1] + size_t{1}) < 0) _exit(1);
        return;
    }
}

}  // namespace

int main() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int iOn = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &iOn, sizeof iOn);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(kPort);
    if (bind(fd, Generic(local), sizeof local) != 0) return 1;
    AskAll();
    unsigned char rgbPacket[8192];
    for (;;) {
        const ssize_t cbPacket = recv(fd, rgbPacket, sizeof rgbPacket, 0);
        if (cbPacket < kHeader) continue;
        PrintName(rgbPacket, cbPacket);
    }
}
