// The interfaces of a simulated machine, as reported by the kernel, and their dump.
#include <qiven/iface.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>

#include "support/bytes_of.h"
#include "support/log_capture.h"
#include "support/netif_text.h"
#include "support/sandbox.h"

namespace {

using Lines = std::vector<std::string>;

constexpr const char *kNoResolvConf = "1|iface_lnx:# failed to open file /etc/resolv.conf error:(2)";

class Iface : public testing::Test {
  protected:
    void SetUp() override {
        sandbox::Enter();
        sandbox::PrivateDir("/etc");
    }
    // Enumerates into the zeroed table; each record as text.
    Lines Enumerate(int numNetIf = QIVEN_IFACE_MAX) {
        memset(m_table.data(), 0, sizeof m_table);
        const int n = QIVENIfaceInit(m_log.Record(), m_table.data(), numNetIf);
        Lines records;
        for (int i = 0; i < n; ++i)
            records.push_back(FromKernel(m_table[static_cast<size_t>(i)]));
        return n == -1 ? Lines{"-1"} : records;
    }
    LogCapture m_log;
    std::array<QIVEN_NETIF, QIVEN_IFACE_MAX + 1> m_table{};
};

TEST_F(Iface, RecordsCarryWhatTheKernelTells) {
    sandbox::AddEthernet("e0", "02:1b:3c:0a:0b:0c", "192.168.1.10/24 brd +");
    sandbox::AddEthernet("longestname1234", "02:00:00:00:00:02", "10.1.2.3/8");
    sandbox::Run("ip address add 172.16.0.1/12 brd + dev e0");  // only the first address counts
    EXPECT_EQ((Lines{"e0 02:1b:3c:0a:0b:0c 192.168.1.10 255.255.255.0 192.168.1.255 1",
                     "longestname1234 02:00:00:00:00:02 10.1.2.3 255.0.0.0 0.0.0.0 1"}),
              Enumerate());
    EXPECT_EQ("0 0.0.0.0 0.0.0.0 255.255.255.255", FromFiles(m_table[0]));
    EXPECT_EQ("0 0.0.0.0 0.0.0.0 255.255.255.255", FromFiles(m_table[1]));
    EXPECT_EQ(Lines{kNoResolvConf}, m_log.Take());
}

// A change of the carrier becomes visible a little later.
bool Becomes(const char *szIf, int iActive) {
    for (int i = 0; i < 500 && QIVENIfaceGetActive(nullptr, szIf) != iActive; ++i)
        usleep(10'000);
    return QIVENIfaceGetActive(nullptr, szIf) == iActive;
}

TEST_F(Iface, DevicesThatCannotSendAreNotListed) {
    sandbox::Run(
        "ip link add nocarrier type veth peer name off && ip address add 10.0.0.1/24 dev nocarrier &&"
        "ip link set nocarrier up");
    ASSERT_TRUE(Becomes("nocarrier", -1));
    m_table[0].blStatic = 7;
    const auto before = m_table;
    EXPECT_EQ(0, QIVENIfaceInit(m_log.Record(), m_table.data(), QIVEN_IFACE_MAX));
    EXPECT_EQ(BytesOf(before), BytesOf(m_table));
    EXPECT_EQ(Lines{kNoResolvConf}, m_log.Take());

    sandbox::Run("ip link set off up");  // now the peer has a carrier
    EXPECT_TRUE(Becomes("nocarrier", 0));
    EXPECT_EQ(-1, QIVENIfaceGetActive(m_log.Record(), "lo"));
    EXPECT_EQ(Lines{}, m_log.Take());
    EXPECT_EQ(-1, QIVENIfaceGetActive(m_log.Record(), "nosuch"));
    EXPECT_EQ(Lines{"1|iface:# ioctl(SIOCGIFFLAGS) error:(19)"}, m_log.Take());
}

TEST_F(Iface, TapDevicesAreNotListed) {
    sandbox::AddEthernet("t0", "02:00:00:00:00:03", "10.0.0.1/24");
    ASSERT_TRUE(Becomes("t0", 0));
    // An ordinary user cannot create a tap interface on every machine; this is how the kernel marks one.
    sandbox::PrivateDir("/sys");
    sandbox::WriteFile("/sys/class/net/t0/tun_flags", "0x1002\n");
    EXPECT_EQ(-1, QIVENIfaceGetActive(m_log.Record(), "t0"));
    EXPECT_EQ(Lines{}, Enumerate());
}

TEST_F(Iface, ListingWritesNameAndMarkOnly) {
    sandbox::AddEthernet("e0", "02:00:00:00:00:01", "10.0.0.1/24");
    sandbox::AddEthernet("e1", "02:00:00:00:00:02", "10.0.1.1/24");
    memset(m_table.data(), 0xAA, sizeof m_table);
    auto expected = m_table;
    strcpy(expected[0].szIfName, "e0");
    expected[0].blActive = 1;
    EXPECT_EQ(1, QIVENGetIfListLnx(m_log.Record(), m_table.data(), 1));
    EXPECT_EQ(BytesOf(expected), BytesOf(m_table));
    EXPECT_EQ(Lines{}, m_log.Take());
    EXPECT_EQ(Lines{"e0 02:00:00:00:00:01 10.0.0.1 255.255.255.0 0.0.0.0 1"}, Enumerate(1));
}

TEST_F(Iface, TheMachinesServerIsResetFirst) {
    gulDNS = 1;
    EXPECT_EQ(-1, QIVENIfaceInit(nullptr, nullptr, 1));
    EXPECT_EQ(INADDR_NONE, gulDNS);
    gulDNS = 1;
    EXPECT_EQ(0, QIVENIfaceInitLnx(nullptr, m_table.data(), 1));
    EXPECT_EQ(1U, gulDNS);  // left by an earlier enumeration, and nothing overwrote it
}

TEST_F(Iface, AddressesOfOneDevice) {
    QIVEN_NETIF netIf{};
    sandbox::AddEthernet("longestname1234", "02:00:00:00:00:01", "10.0.0.1/24 brd +");
    strcpy(netIf.szIfName, "longestname1234, of which the kernel sees 15 characters");
    netIf.blActive = 0;
    EXPECT_EQ(0, QIVENIfaceGetNetSetting(m_log.Record(), &netIf));
    EXPECT_EQ(
        "longestname1234, of which the kernel sees 15 characters 02:00:00:00:00:01 10.0.0.1 "
        "255.255.255.0 10.0.0.255 0",
        FromKernel(netIf));
}

constexpr const char *kHeader =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo\n";

TEST_F(Iface, TheDeviceListIsTakenAsItComes) {
    sandbox::AddEthernet("longestname1234", "02:00:00:00:00:01", "10.0.0.1/24");
    sandbox::AddEthernet("e0", "02:00:00:00:00:02", "10.0.1.1/24");
    sandbox::PrivateDir("/proc/self/net");
    const std::string record = "e0 02:00:00:00:00:02 10.0.1.1 255.255.255.0 0.0.0.0 1";
    std::string crowd = kHeader;
    for (int i = 0; i < 70; ++i)
        crowd += "    e0: 0 0 0\n";
    const std::string longName = "longestname1234" + std::string(70, 'z');
    const std::pair<std::string, Lines> cases[] = {
        {"", {}},
        {"e0: 1\ne0: 2\ne0: 3\n", {record}},
        {std::string(kHeader) + "no colon\n\n \t e0:1 2:3", {record}},
        {std::string(kHeader) + ":\n e0 : 1\n: e0: 1\n" + std::string(9999, ':') + "\n", {}},
        {crowd, Lines(QIVEN_IFACE_MAX, record)},
        // One read takes 511 characters: the rest counts as the next line.
        {kHeader + std::string(511, 'x') + "e0: 1\n", {record}},
        {kHeader + std::string(510, 'x') + "e0: 1\n", {}},
        {kHeader + longName + ": 1\n",
         {longName.substr(0, 63) + " 02:00:00:00:00:01 10.0.0.1 255.255.255.0 0.0.0.0 1"}},
    };
    for (const auto &[list, expected] : cases) {
        sandbox::WriteFile("/proc/net/dev", list);
        EXPECT_EQ(expected, Enumerate()) << list;
    }
    m_log.Take();

    std::filesystem::remove("/proc/net/dev");
    EXPECT_EQ(Lines{"-1"}, Enumerate());
    std::filesystem::create_directory("/proc/net/dev");  // opens, and cannot be read
    EXPECT_EQ(-1, QIVENGetIfListLnx(m_log.Record(), m_table.data(), 1));
    EXPECT_EQ(Lines{kNoResolvConf}, m_log.Take());
    EXPECT_EQ(-1, QIVENIfaceDump(m_log.Record()));
    EXPECT_EQ((Lines{kNoResolvConf, "1|iface:# fail to enum IP\n"}), m_log.Take());
}

TEST_F(Iface, DumpShowsTheServerAndNineLinesForEach) {
    EXPECT_EQ(0, QIVENIfaceDump(m_log.Record()));
    EXPECT_EQ((Lines{kNoResolvConf, "1|iface:# Global DNS:\t255.255.255.255\n"}), m_log.Take());

    sandbox::AddEthernet("e0", "02:1b:3c:0a:0b:0c", "192.168.1.10/24 brd +");
    sandbox::AddEthernet("e1", "02:00:00:00:00:02");
    sandbox::WriteFile("/etc/resolv.conf", "nameserver 192.168.1.53\n");
    sandbox::WriteFile("/etc/network/interfaces", "iface e0 inet static\ngateway 192.168.1.1\n");
    EXPECT_EQ(0, QIVENIfaceDump(m_log.Record()));
    Lines expected = {"1|iface:# ioctl SIOCGIFADDR e1 error:(99)"};
    for (const char *szLine :
         {"Global DNS:\t192.168.1.53", "[e0]", "Mac Address:\t02:1B:3C:0A:0B:0C", "IP:\t192.168.1.10",
          "Mask:\t255.255.255.0", "ulBroadCast:\t192.168.1.255", "ulGateway:\t192.168.1.1", "DNS:\t0.0.0.0",
          "DHCP:\tNO", "Active:\tYES", "[e1]", "Mac Address:\t02:00:00:00:00:02", "IP:\t0.0.0.0",
          "Mask:\t0.0.0.0", "ulBroadCast:\t0.0.0.0", "ulGateway:\t0.0.0.0", "DNS:\t0.0.0.0", "DHCP:\tYES",
          "Active:\tNO"})
        expected.push_back("1|iface:# " + std::string(szLine) + "\n");
    EXPECT_EQ(expected, m_log.Take());
}

}  // namespace
