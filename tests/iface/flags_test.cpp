// Which kernel flags make an interface usable. The answers of the kernel are simulated, because not every
// kernel can create a bonding slave or a point-to-point interface.
#include <qiven/iface.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <cstdarg>

#include "support/log_capture.h"

namespace {

short g_flags = 0;
std::string g_askedName;
int g_fdFlags = 0;

}  // namespace

// Visible, so that the linker also binds the references of shared libraries to it.
extern "C" QIVEN_API int __wrap_ioctl(int fd, unsigned long ulRequest, ...);
extern "C" int __wrap_ioctl(int fd, unsigned long ulRequest, ...) {
    va_list args;
    va_start(args, ulRequest);
    ifreq *pRequest = va_arg(args, ifreq *);
    va_end(args);
    EXPECT_EQ(static_cast<unsigned long>(SIOCGIFFLAGS), ulRequest);
    g_askedName.assign(pRequest->ifr_name, sizeof pRequest->ifr_name);
    g_fdFlags = fcntl(fd, F_GETFD);
    pRequest->ifr_flags = g_flags;
    return 0;
}

namespace {

TEST(IfaceFlags, UpAndRunningAndNothingThatRules) {
    constexpr int kUsable = IFF_UP | IFF_RUNNING;
    const std::pair<int, int> cases[] = {
        {kUsable | IFF_BROADCAST | IFF_MULTICAST | IFF_PROMISC | IFF_NOARP, 0},
        {kUsable | IFF_MASTER, 0},
        {IFF_UP, -1},
        {IFF_RUNNING, -1},
        {kUsable | IFF_LOOPBACK, -1},
        {kUsable | IFF_POINTOPOINT, -1},
        {kUsable | IFF_SLAVE, -1},
    };
    LogCapture log;
    for (const auto &[iFlags, iExpected] : cases) {
        g_flags = static_cast<short>(iFlags);
        EXPECT_EQ(iExpected, QIVENIfaceGetActive(log.Record(), "eth0")) << std::hex << iFlags;
    }
    EXPECT_EQ(std::vector<std::string>{}, log.Take());
    EXPECT_EQ(FD_CLOEXEC, g_fdFlags);
}

TEST(IfaceFlags, TheKernelIsAskedFor15CharactersOfTheName) {
    g_flags = IFF_UP | IFF_RUNNING;
    using namespace std::string_literals;
    EXPECT_EQ(0, QIVENIfaceGetActive(nullptr, "eth0"));
    EXPECT_EQ("eth0\0\0\0\0\0\0\0\0\0\0\0\0"s, g_askedName);
    EXPECT_EQ(0, QIVENIfaceGetActive(nullptr, std::string(10'000, 'x').c_str()));
    EXPECT_EQ("xxxxxxxxxxxxxxx\0"s, g_askedName);
}

}  // namespace
