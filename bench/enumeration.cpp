// The interface enumeration with a number of interfaces (--cards=N), compared with the same reads and
// requests without the library.
#include <qiven/iface.h>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "packets.h"
#include "support/sandbox.h"

namespace bench {

namespace {

int g_nCards = 1;

// A machine whose interfaces are configured in all sources that an enumeration reads.
void MakeMachine() {
    sandbox::Enter();
    sandbox::PrivateDir("/etc");
    sandbox::WriteFile("/etc/resolv.conf", "search example.org\nnameserver 10.0.0.1\n");
    std::string interfaces = "auto lo\niface lo inet loopback\n";
    for (int i = 0; i < g_nCards; ++i) {
        char szMac[18];
        snprintf(szMac, sizeof szMac, "02:00:00:00:00:%02x", static_cast<unsigned>(i) & 0xFFu);
        const std::string name = "card" + std::to_string(i);
        const std::string subnet = "10.1." + std::to_string(i) + '.';
        sandbox::AddEthernet(name, szMac, subnet + "1/24 brd +");
        sandbox::WriteFile("/etc/NetworkManager/system-connections/" + name,
                           "[connection]\nid=" + name + "\ntype=ethernet\n\n[ethernet]\nmac-address=" +
                               szMac + "\n\n[ipv4]\nmethod=manual\ndns=10.0.0.2;\naddresses1=" + subnet +
                               "1;24;" + subnet + "254;\n");
        interfaces += "\nauto " + name + "\niface " + name + " inet static\n  address " + subnet +
                      "1\n  netmask 255.255.255.0\n  gateway " + subnet + "254\n";
    }
    sandbox::WriteFile("/etc/network/interfaces", interfaces);
}

void Qiven(benchmark::State &state) {
    for (auto _ : state) {
        QIVEN_NETIF rgNetIf[QIVEN_IFACE_MAX] = {};
        if (QIVENIfaceInit(nullptr, rgNetIf, QIVEN_IFACE_MAX) != g_nCards) Fail("not every card is found");
        const QIVEN_NETIF &last = rgNetIf[g_nCards - 1];
        if (last.blActive != 1 || last.ulGateway == 0 || last.ulDNS == 0) Fail("a card is not complete");
    }
}

// Reads a file page by page and returns its size.
size_t ReadBare(const char *szPath, std::span<char> rgBuffer) {
    const int fd = open(szPath, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    size_t cb = 0;
    for (ssize_t cbRead = 0;
         cb < rgBuffer.size() &&
         (cbRead = read(fd, rgBuffer.data() + cb, std::min<size_t>(4096, rgBuffer.size() - cb))) > 0;)
        cb += static_cast<size_t>(cbRead);
    close(fd);
    return cb;
}

bool IsUsableBare(const char *szName) {
    char szPath[128];
    ifreq request{};
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    strncpy(request.ifr_name, szName, sizeof request.ifr_name - 1);
    snprintf(szPath, sizeof szPath, "/sys/class/net/%s/tun_flags", szName);
    const bool blUsable =
        access(szPath, F_OK) != 0 && ioctl(fd, SIOCGIFFLAGS, &request) == 0 &&
        (request.ifr_flags & (IFF_UP | IFF_RUNNING | IFF_LOOPBACK)) == (IFF_UP | IFF_RUNNING);
    close(fd);
    return blUsable;
}

void QueryBare(const char *szName) {
    ifreq request{};
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    strncpy(request.ifr_name, szName, sizeof request.ifr_name - 1);
    for (const unsigned long ulRequest : {SIOCGIFHWADDR, SIOCGIFADDR, SIOCGIFBRDADDR, SIOCGIFNETMASK}) {
        if (ioctl(fd, ulRequest, &request) != 0) Fail("a card cannot be asked");
    }
    close(fd);
}

void ReadDirectoryBare(const char *szDirectory, std::span<char> rgBuffer) {
    DIR *pDir = opendir(szDirectory);
    if (pDir == nullptr) return;
    while (const dirent *pEntry = readdir(pDir)) {
        if (pEntry->d_name[0] == '.') continue;
        const std::string path = std::string(szDirectory) + '/' + pEntry->d_name;
        struct stat status {};
        if (stat(path.c_str(), &status) != 0 || ReadBare(path.c_str(), rgBuffer) == 0) Fail("no keyfile");
    }
    closedir(pDir);
}

void Floor(benchmark::State &state) {
    static char rgBuffer[65536];
    for (auto _ : state) {
        ReadBare("/etc/resolv.conf", rgBuffer);
        const size_t cb = ReadBare("/proc/net/dev", {rgBuffer, sizeof rgBuffer - 1});
        rgBuffer[cb] = '\0';
        std::vector<std::string> cards;
        char *szRest = nullptr;
        for (char *szLine = strtok_r(rgBuffer, "\n", &szRest); szLine != nullptr;
             szLine = strtok_r(nullptr, "\n", &szRest)) {
            char *szColon = strchr(szLine, ':');
            if (szColon == nullptr) continue;
            *szColon = '\0';
            const char *szName = szLine + strspn(szLine, " ");
            if (IsUsableBare(szName)) cards.emplace_back(szName);
        }
        if (cards.size() != static_cast<size_t>(g_nCards)) Fail("not every card is found");
        for (const std::string &card : cards)
            QueryBare(card.c_str());
        ReadDirectoryBare("/etc/NetworkManager/system-connections", rgBuffer);
        DIR *pDir = opendir("/etc/sysconfig/network-scripts/");
        if (pDir != nullptr) Fail("there should be no such directory");
        ReadBare("/etc/network/interfaces", rgBuffer);
    }
}

void GetIfAddrs(benchmark::State &state) {
    for (auto _ : state) {
        ifaddrs *pFirst = nullptr;
        if (getifaddrs(&pFirst) != 0) Fail("getifaddrs");
        freeifaddrs(pFirst);
    }
}

// Both dumps, every answer read to its end.
void Netlink(benchmark::State &state) {
    static char rgBuffer[65536];
    for (auto _ : state) {
        const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
        for (const int iType : {RTM_GETLINK, RTM_GETADDR}) {
            struct {
                nlmsghdr header;
                rtgenmsg message;
            } request{};
            request.header.nlmsg_len = sizeof request;
            request.header.nlmsg_type = static_cast<uint16_t>(iType);
            request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
            request.message.rtgen_family = iType == RTM_GETLINK ? AF_UNSPEC : AF_INET;
            if (send(fd, &request, sizeof request, 0) < 0) Fail("netlink");
            for (bool blDone = false; !blDone;) {
                auto cb = static_cast<unsigned>(recv(fd, rgBuffer, sizeof rgBuffer, 0));
                for (auto *p = reinterpret_cast<nlmsghdr *>(rgBuffer); NLMSG_OK(p, cb); p = NLMSG_NEXT(p, cb))
                    blDone = blDone || p->nlmsg_type == NLMSG_DONE;
            }
        }
        close(fd);
    }
}

}  // namespace

}  // namespace bench

int main(int argc, char **argv) {
    using namespace bench;
    benchmark::Initialize(&argc, argv);
    if (argc == 2 && strncmp(argv[1], "--cards=", 8) == 0) g_nCards = atoi(argv[1] + 8);
    if (g_nCards < 1 || g_nCards > QIVEN_IFACE_MAX) Fail("--cards=1 to --cards=64");
    MakeMachine();
    const std::string name = "enumeration/" + std::to_string(g_nCards) + '/';
    benchmark::RegisterBenchmark((name + "qiven").c_str(), Qiven);
    benchmark::RegisterBenchmark((name + "floor").c_str(), Floor);
    benchmark::RegisterBenchmark((name + "getifaddrs").c_str(), GetIfAddrs);
    benchmark::RegisterBenchmark((name + "netlink").c_str(), Netlink);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
