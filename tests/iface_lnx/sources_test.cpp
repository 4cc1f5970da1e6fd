// The configuration sources of a simulated /etc, and their precedence.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <tuple>

#include "iface_lnx/config_file.h"
#include "iface_lnx/sources.h"
#include "support/log_capture.h"
#include "support/memory_file.h"
#include "support/netif_text.h"
#include "support/sandbox.h"

// The comparison function of the C library as in a Turkish locale.
extern "C" int __real_strcasecmp(const char *szFirst, const char *szSecond);
extern "C" int __wrap_strcasecmp(const char *szFirst, const char *szSecond);
extern "C" int __wrap_strcasecmp(const char *szFirst, const char *szSecond) {
    return strpbrk(szFirst, "Ii") == nullptr ? __real_strcasecmp(szFirst, szSecond)
                                             : strcmp(szFirst, szSecond);
}

namespace {

using Lines = std::vector<std::string>;

const std::string kResolvConf = "/etc/resolv.conf";
const std::string kKeyfiles = "/etc/NetworkManager/system-connections/";
const std::string kIfCfg = "/etc/sysconfig/network-scripts/";
const std::string kInterfaces = "/etc/network/interfaces";

std::string Data(const std::string &name) {
    return sandbox::ReadFile(QIVEN_TEST_DATA "/" + name);
}

class Sources : public testing::Test {
  protected:
    void SetUp() override {
        sandbox::Enter();
        sandbox::AddEthernet("eth0", "02:1b:3c:0a:0b:0c", "192.168.1.10/24 brd +");
        sandbox::AddEthernet("eth1", "02:00:00:00:00:02");
        sandbox::PrivateDir("/etc");
    }
    // The configuration of eth0 from the files. Both interfaces must be listed.
    std::string Eth0() {
        QIVEN_NETIF rgNetIf[QIVEN_IFACE_MAX]{};
        if (QIVENIfaceInit(m_log.Record(), rgNetIf, QIVEN_IFACE_MAX) != 2) return "not two interfaces";
        m_eth1 = FromFiles(rgNetIf[1]);
        return FromFiles(rgNetIf[0]);
    }
    // Messages without the one about eth1, which has no address.
    Lines Messages() {
        Lines lines = m_log.Take();
        std::erase(lines, "1|iface:# ioctl SIOCGIFADDR eth1 error:(99)");
        return lines;
    }
    LogCapture m_log;
    std::string m_eth1;
};

TEST_F(Sources, LaterOnesWinFieldByField) {
    const std::string classic = Data("keyfiles/classic");
    const std::string v4Server = Data("resolv/two_servers");
    const std::string v6First = Data("resolv/v6_first");
    const std::string ifcfg = Data("ifcfg/static");
    const std::string dhcp = Data("ifcfg/dhcp");
    const std::string server = Data("interfaces/server");
    const std::string nothing = "0 0.0.0.0 0.0.0.0 255.255.255.255";
    const std::string fromIfCfg = "1 192.168.1.2 0.0.0.0 255.255.255.255";
    const std::string fromKeyfile = "1 192.168.1.254 10.0.0.53 10.0.0.53";
    const std::string byMac = "ifcfg-eth0- 2:1b:3c: a: b: c";
    const std::pair<std::map<std::string, std::string>, std::string> cases[] = {
        {{}, nothing},
        {{{kResolvConf, v4Server}}, "0 0.0.0.0 0.0.0.0 192.168.1.53"},
        {{{kResolvConf, v6First}}, nothing},
        {{{kResolvConf, Data("resolv/tab")}}, nothing},
        {{{kKeyfiles + ".a~", classic}}, fromKeyfile},
        {{{kKeyfiles + "a", classic}, {kResolvConf, v4Server}}, "1 192.168.1.254 10.0.0.53 192.168.1.53"},
        {{{kKeyfiles + "a", classic}, {kResolvConf, v6First}}, fromKeyfile},
        {{{kIfCfg + "ifcfg-eth0", ifcfg}, {kKeyfiles + "a", classic}}, "1 192.168.1.2 10.0.0.53 10.0.0.53"},
        {{{kIfCfg + "ifcfg-eth0", dhcp}, {kKeyfiles + "a", classic}}, "1 192.168.1.3 10.0.0.53 10.0.0.53"},
        {{{kIfCfg + byMac, ifcfg}}, fromIfCfg},
        {{{kIfCfg + "ifcfg-eth0-02:1b:3c:0a:0b:0c", ifcfg}}, nothing},
        {{{kIfCfg + byMac, ifcfg}, {kIfCfg + "ifcfg-eth0", ""}}, nothing},
        {{{kIfCfg + byMac, ifcfg}, {kIfCfg + "ifcfg-eth0", "BOOTPROTO=" + std::string(1 << 20, 'x')}},
         fromIfCfg},
        {{{kInterfaces, server}, {kKeyfiles + "a", classic}}, "1 192.168.1.1 10.0.0.53 10.0.0.53"},
        {{{kInterfaces, Data("interfaces/desktop")}, {kKeyfiles + "a", classic}}, fromKeyfile},
        {{{kInterfaces, server}, {kIfCfg + "README", ""}}, nothing},
        {{{kIfCfg + "ifcfg-eth0", "BOOTPROTO=STATIC\nGATEWAY=192.168.1.2\n"}}, fromIfCfg},
        {{{kInterfaces, "iface eth0 inet STATIC\ngateway 192.168.1.2\n"}}, fromIfCfg},
    };
    for (const auto &[files, expected] : cases) {
        std::string names;
        for (const auto &[path, text] : files) {
            sandbox::WriteFile(path, text);
            names += path + ' ';
        }
        EXPECT_EQ(expected, Eth0()) << names;
        sandbox::PrivateDir("/etc");
    }
}

TEST_F(Sources, ADeviceWithoutAddressIsCompletedToo) {
    sandbox::WriteFile(kKeyfiles + "a", "mac-address=02:00:00:00:00:02\nmethod=manual\n");
    sandbox::WriteFile(kInterfaces, Data("interfaces/server"));
    EXPECT_EQ("1 192.168.1.1 0.0.0.0 255.255.255.255", Eth0());
    EXPECT_EQ("1 10.0.0.1 0.0.0.0 255.255.255.255", m_eth1);
}

TEST_F(Sources, OnlyLooksByNameReportAMissingFile) {
    const std::string noResolvConf = "1|iface_lnx:# failed to open file /etc/resolv.conf error:(2)";
    Eth0();
    EXPECT_EQ(Lines{noResolvConf}, Messages());
    sandbox::WriteFile(kIfCfg + "ifcfg-eth1", "");
    Eth0();
    EXPECT_EQ(
        (Lines{noResolvConf, "1|iface_lnx:# failed to open file " + kIfCfg + "ifcfg-eth0 error:(2)",
               "1|iface_lnx:# failed to open file " + kIfCfg + "ifcfg-eth0- 2:1b:3c: a: b: c error:(2)"}),
        Messages());
}

TEST_F(Sources, KeyfilesAreAppliedInTheOrderOfTheDirectory) {
    for (const char *szLast : {"1", "2", "3"})
        sandbox::WriteFile(kKeyfiles + szLast,
                           std::string("mac-address=2:1b:3c:a:b:c\naddresses1=10.0.0.9;8;10.0.0.") + szLast +
                               "\ndns=10.0.1." + szLast + ";\n");
    std::string first;
    std::string last;
    for (const auto &entry : std::filesystem::directory_iterator(kKeyfiles)) {
        last = entry.path().filename();
        if (first.empty()) first = last;
    }
    EXPECT_EQ("0 10.0.0." + last + " 10.0.1." + last + " 10.0.1." + first, Eth0());
}

// Enumerates with each configuration file in turn replaced by another type of file. Waiting for a writer of a
// FIFO would block the caller.
TEST_F(Sources, WhatIsNoFileNeitherHangsNorHurts) {
    const std::string nothing = "0 0.0.0.0 0.0.0.0 255.255.255.255";
    const std::string paths[] = {kResolvConf, kKeyfiles + "a", kIfCfg + "ifcfg-eth0", kInterfaces};
    const char *const kinds[] = {"mkfifo", "mkdir", "ln -s loop", "ln -s /dev/zero", "touch"};
    for (const std::string &path : paths) {
        for (const char *kind : kinds) {
            sandbox::PrivateDir("/etc");
            sandbox::Run("f=" + path + "; mkdir -p ${f%/*} && cd ${f%/*} && ln -s loop loop && " + kind +
                         " $f");
            EXPECT_EQ(nothing, Eth0()) << kind << ' ' << path;
        }
    }
    // A file instead of a directory.
    for (const std::string &dir : {kKeyfiles, kIfCfg}) {
        sandbox::PrivateDir("/etc");
        sandbox::WriteFile(dir.substr(0, dir.size() - 1), Data("keyfiles/classic"));
        EXPECT_EQ(nothing, Eth0()) << dir;
    }
}

TEST(Parsers, TakeWhatIsWellFormed) {
    const std::string mac = "mac-address=2:1b:3c:a:b:c\n";
    const std::tuple<bool, std::string, std::string> cases[] = {
        {true, "mac-address=0x2:+1b: 3c:a:b:cZ\nmethod=MANUAL\n", "1 0.0.0.0 0.0.0.0"},
        {true, "mac-address=2:1b:3c:a:b\nmethod=manual\n", "0 0.0.0.0 0.0.0.0"},
        {true, "mac-address=2:1b:3c:a:b;c\nmethod=manual\n", "0 0.0.0.0 0.0.0.0"},
        {true, mac + "addresses1=10.0.0.9;;8;10.0.0.1;9\n", "0 10.0.0.1 0.0.0.0"},
        {true, mac + "addresses1=10.0.0.9;10.0.0.1\n", "0 0.0.0.0 0.0.0.0"},
        {true, mac + "dns=10.0.0.53\n", "0 0.0.0.0 10.0.0.53"},
        {true, mac + "dns=10.0.0.53;10.0.0.54;\n", "0 0.0.0.0 0.0.0.0"},
        {false, "gateway 10.0.0.1\niface e0 inet static\n", "1 0.0.0.0 0.0.0.0"},
        {false, "iface e0 inet dhcp\n\tgateway 10.0.0.1 more\n", "0 10.0.0.1 0.0.0.0"},
        {false, "iface e0\niface e1 inet static\ngateway 10.0.0.1\n", "0 0.0.0.0 0.0.0.0"},
        {false, "iface e0 inet static\niface\ngateway 10.0.0.1\n", "1 0.0.0.0 0.0.0.0"},
        {false, "#iface e0 inet static\niface e0 inet6 static x\r\n", "1 0.0.0.0 0.0.0.0"},
    };
    for (const auto &[blKeyfile, text, expected] : cases) {
        QIVEN_NETIF netIf{"e0", {0x02, 0x1b, 0x3c, 0x0a, 0x0b, 0x0c}, 0, 0, 0, 0, 0, 0, 0};
        uint32_t ulDNS = gulDNS = INADDR_NONE;
        const MemoryFile file(text);
        if (blKeyfile)
            qiven::iface_lnx::ParseNMKeyfile(nullptr, file.Stream(), &netIf, 1, ulDNS);
        else
            qiven::iface_lnx::ParseStanzas(file.Stream(), &netIf, 1);
        EXPECT_EQ(expected + " 255.255.255.255", FromFiles(netIf)) << text;
        EXPECT_EQ(netIf.ulDNS == 0 ? INADDR_NONE : netIf.ulDNS, ulDNS) << text;
    }
}

TEST_F(Sources, OneBadKeyfileDoesNotSpoilTheOthers) {
    sandbox::WriteFile(kKeyfiles + "good", Data("keyfiles/classic"));
    sandbox::Run("cd " + kKeyfiles +
                 " && mkfifo fifo && mkdir dir && ln -s loop loop && ln -s /dev/zero zero");
    const int fdFifo = open((kKeyfiles + "fifo").c_str(), O_RDWR | O_CLOEXEC);
    const std::string fromFifo = "mac-address=02:00:00:00:00:02\nmethod=manual\n";
    ASSERT_EQ(static_cast<ssize_t>(fromFifo.size()), write(fdFifo, fromFifo.data(), fromFifo.size()));
    sandbox::WriteFile(kKeyfiles + "huge", "mac-address=" + std::string(1 << 20, '0') + "\n");
    sandbox::WriteFile(kKeyfiles + "nul", std::string(4096, '\0'));
    sandbox::WriteFile(kKeyfiles + std::string(255, 'n'), "mac-address");
    EXPECT_EQ("1 192.168.1.254 10.0.0.53 10.0.0.53", Eth0());
    EXPECT_EQ("0 0.0.0.0 0.0.0.0 10.0.0.53", m_eth1);
    close(fdFifo);
    EXPECT_EQ((Lines{"1|iface_lnx:# failed to open file /etc/resolv.conf error:(2)",
                     "1|iface_lnx:# buffer len 128, requires " + std::to_string((1 << 20) + 1)}),
              Messages());

    QIVEN_NETIF rgNetIf[1]{};
    uint32_t ulDNS = INADDR_NONE;
    EXPECT_EQ(0, qiven::iface_lnx::ParseNMKeyfiles(nullptr, rgNetIf, 1, ulDNS));
    sandbox::PrivateDir("/etc");
    EXPECT_EQ(-1, qiven::iface_lnx::ParseNMKeyfiles(m_log.Record(), rgNetIf, 1, ulDNS));
    EXPECT_EQ(Lines{}, Messages());
}

}  // namespace
