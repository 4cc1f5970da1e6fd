// The readers of configuration files, fed from memory.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <tuple>

#include "iface_lnx/iface_lnx.h"
#include "support/log_capture.h"
#include "support/memory_file.h"
#include "support/netif_text.h"

namespace {

using namespace qiven::iface_lnx;
using Lines = std::vector<std::string>;

constexpr const char *kNothing = "0 0.0.0.0 0.0.0.0 255.255.255.255";
constexpr const char *kStatic = "1 0.0.0.0 0.0.0.0 255.255.255.255";
constexpr const char *kGateway = "0 10.0.0.1 0.0.0.0 255.255.255.255";
constexpr const char *kBoth = "1 10.0.0.1 0.0.0.0 255.255.255.255";

std::string Data(const std::string &name) {
    std::ifstream file(QIVEN_TEST_DATA "/etc/" + name, std::ios::binary);
    if (!file) throw std::runtime_error("no test data " + name);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Two interfaces, eth1 and eth0, of which the second has the address that the files name.
struct Table {
    Table() {
        strcpy(rgNetIf[0].szIfName, "eth1");
        strcpy(rgNetIf[1].szIfName, "eth0");
        memcpy(rgNetIf[1].rgMac, "\x02\x1b\x3c\x0a\x0b\x0c", 6);
        rgNetIf[2] = rgNetIf[1];  // past the count: must never be found
        gulDNS = INADDR_NONE;
    }
    // What the files say of eth0; throws when another record was touched.
    std::string Eth0() const {
        for (const auto &other : {rgNetIf[0], rgNetIf[2]}) {
            if (other.blStatic != 0 || other.ulGateway != 0 || other.ulDNS != 0)
                throw std::runtime_error("a record was changed that should not be");
        }
        return FromFiles(rgNetIf[1]);
    }
    std::array<QIVEN_NETIF, 3> rgNetIf{};
    static constexpr int kCount = 2;
};

std::string Find(std::string_view text, const char *szKey, char chDelim = '=') {
    const MemoryFile file(text);
    char szValue[kValueSize];
    memset(szValue, '#', sizeof szValue);
    const int iFound = GetKeyValue(nullptr, file.Stream(), szKey, szValue, chDelim);
    if (iFound == 1) return std::string("=") + szValue;
    return szValue[0] == '#' ? std::to_string(iFound) : "value buffer changed";
}

TEST(GetKeyValue, FindsTheFirstLineWithTheKey) {
    using namespace std::string_view_literals;
    // Blanks in front of a value are space and tab, nothing else; a NUL ends the line's text.
    const std::pair<std::string_view, const char *> cases[] = {
        {"", "0"},
        {"K=v\r\nK=2\n", "=v"},
        {"KK=1\nK1=2\nk=3\n K K=4\nK=5\n", "=5"},
        {" \t K \t = \t v w \t\n", "=v w"},
        {"K= = \t=v=w=", "=v=w="},
        {"K\v\f =v\v\f\n", "=v"},
        {"\vK=v\nK=\vw\n", "=\vw"},
        {"K", "="},
        {"#K=1\n \t#K=2\n\n\r\n \t\nK=3#4 # 5\n", "=3#4 # 5"},
        {"K=\" v \" \n", "= v "},
        {"K=\"\n", "="},
        {"K=\"v\n", "=\"v"},
        {"\0K=a\nK=b\0c\n"sv, "=b"},
        {"K=%s%n\n", "=%s%n"}};
    for (const auto &[text, szExpected] : cases)
        EXPECT_EQ(szExpected, Find(text, "K")) << text;
    EXPECT_EQ("0", Find("nameserver\t192.168.1.1\n", "nameserver", ' '));
    EXPECT_EQ("=1.1.1.1 # mine", Find("nameserver 1.1.1.1 # mine\n", "nameserver", ' '));
}

TEST(GetKeyValue, TakesLinesOfAnyLengthAndValuesUpTo127Characters) {
    const std::string longLine = "X=" + std::string(1 << 20, 'x') + "\n";
    EXPECT_EQ("=v", Find(longLine + "K=v\n", "K"));
    EXPECT_EQ("=" + std::string(127, 'y'), Find("K=\"" + std::string(127, 'y') + "\"\n", "K"));

    LogCapture log;
    char szValue[kValueSize] = "kept";
    for (const size_t cb : {size_t{128}, size_t{1} << 20}) {
        const MemoryFile file("K=" + std::string(cb, 'y') + "\nK=v\n");
        EXPECT_EQ(-1, GetKeyValue(log.Record(), file.Stream(), "K", szValue, '='));
        EXPECT_STREQ("kept", szValue);
        EXPECT_EQ(Lines{"1|iface_lnx:# buffer len 128, requires " + std::to_string(cb + 1)}, log.Take());
    }
}

TEST(GetKeyValue, ReportsBadArgumentsInOrder) {
    LogCapture log;
    const MemoryFile file("K=v\n");
    char szValue[kValueSize];
    for (const auto &[szKey, szTo, szCondition] :
         {std::tuple{static_cast<const char *>(nullptr), static_cast<char *>(nullptr),
                     "((void *)0) != szKey"},
          {"K", nullptr, "((void *)0) != szValue"},
          {"K", szValue, "0 != chDelim"}}) {
        EXPECT_EQ(-1, GetKeyValue(log.Record(), file.Stream(), szKey, szTo, 0));
        EXPECT_EQ(-1, GetKeyValueFromFile(log.Record(), "/nowhere", szKey, szTo, 0));
        EXPECT_EQ(Lines(2, Invalid("iface_lnx", szCondition)), log.Take());
    }
    EXPECT_EQ(-1, GetKeyValue(log.Record(), nullptr, nullptr, nullptr, 0));
    EXPECT_EQ(-1, GetKeyValueFromFile(log.Record(), nullptr, nullptr, nullptr, 0));
    EXPECT_EQ(-1, GetKeyValueFromFile(log.Record(), "/nowhere", "K", szValue, '='));
    EXPECT_EQ(0, GetKeyValueFromFile(log.Record(), "/", "K", szValue, '='));  // opens, cannot be read
    QIVEN_NETIF netIf{};
    EXPECT_EQ(-1, ParseIfCfg(log.Record(), nullptr, nullptr));
    EXPECT_EQ(-1, ParseIfCfg(log.Record(), "/nowhere", nullptr));
    EXPECT_EQ(-1, ParseIfCfg(log.Record(), "/nowhere", &netIf));
    const std::string missing = "1|iface_lnx:# failed to open file /nowhere error:(2)";
    EXPECT_EQ(
        (Lines{Invalid("iface_lnx", "((void *)0) != pfSrc"), Invalid("iface_lnx", "((void *)0) != szFile"),
               missing, Invalid("iface_lnx", "((void *)0) != szIfCfg"),
               Invalid("iface_lnx", "NULL != pNetIf"), missing}),
        log.Take());
}

std::string Keyfile(std::string_view text, Table table = {}) {
    const MemoryFile file(text);
    ParseNMKeyfile(nullptr, file.Stream(), table.rgNetIf.data(), Table::kCount);
    return table.Eth0();
}

TEST(NMKeyfile, AsTheProgramsWriteThem) {
    EXPECT_EQ("1 0.0.0.0 8.8.8.8 8.8.8.8", Keyfile(Data("keyfiles/office.nmconnection")));
    EXPECT_EQ("1 192.168.1.254 10.0.0.53 10.0.0.53", Keyfile(Data("keyfiles/classic")));
    for (const char *szName : {"lab", "anywhere", "cafe", "v6only"})
        EXPECT_EQ(kNothing, Keyfile(Data(std::string("keyfiles/") + szName + ".nmconnection"))) << szName;
}

TEST(NMKeyfile, HardwareAddress) {
    for (const char *szMac :
         {"0x2:0X1b: \t3C:a:0b:0c and more", "102:f1b:3c:0a:0b:ff0c", "-fe:1b:3c:0a:0b:+c"})
        EXPECT_EQ(kStatic, Keyfile(std::string("mac-address=") + szMac + "\nmethod=manual\n")) << szMac;
    for (const char *szMac : {"", "02:1b:3c:0a:0b:", "02:1b:3c:0a:0b:0d", "02 :1b:3c:0a:0b:0c",
                              "02::1b:3c:0a:0b:0c", "ffffffffffffffffffffffff02:1b:3c:0a:0b:0c"})
        EXPECT_EQ(kNothing, Keyfile(std::string("mac-address=") + szMac + "\nmethod=manual\n")) << szMac;
}

TEST(NMKeyfile, Values) {
    const std::pair<const char *, const char *> cases[] = {
        {"method=MANUAL", kStatic},
        {"method=manually", kNothing},
        {"dns=8.8.8.8", "0 0.0.0.0 8.8.8.8 8.8.8.8"},
        {"dns=8.8.8.8;;", kNothing},
        {"dns=255.255.255.255;", kNothing},
        {"addresses1=;;192.168.1.10;;24;;10.0.0.1", kGateway},
        {"addresses1=192.168.1.10;24;fe80::1;10.0.0.1", kNothing},
        {"addresses2=192.168.1.10;24;192.168.1.1;", kNothing},
    };
    for (const auto &[szLines, szExpected] : cases)
        EXPECT_EQ(szExpected, Keyfile(std::string("mac-address=02:1B:3C:0A:0B:0C\n") + szLines)) << szLines;

    Table known;
    gulDNS = inet_addr("10.0.0.1");
    known.rgNetIf[1].blStatic = 1;
    EXPECT_EQ("1 0.0.0.0 8.8.8.8 10.0.0.1",
              Keyfile("mac-address=02:1B:3C:0A:0B:0C\nmethod=auto\ndns=8.8.8.8\n", known));
}

TEST(NMKeyfile, OneValueTooLongIsOneMissingKey) {
    LogCapture log;
    Table table;
    const MemoryFile file("mac-address=02:1B:3C:0A:0B:0C\nmethod=manual\ndns=" + std::string(200, '8') +
                          "\naddresses1=1.2.3.4;8;10.0.0.1\n");
    ParseNMKeyfile(log.Record(), file.Stream(), table.rgNetIf.data(), Table::kCount);
    EXPECT_EQ(kBoth, table.Eth0());
    EXPECT_EQ(Lines{"1|iface_lnx:# buffer len 128, requires 201"}, log.Take());

    ParseNMKeyfile(nullptr, MemoryFile(Data("keyfiles/classic")).Stream(), table.rgNetIf.data(), 1);
    EXPECT_EQ(kBoth, table.Eth0());  // which is not in this part of the table
}

TEST(IfCfg, StaticAndGateway) {
    const std::tuple<std::string, int, int, const char *> cases[] = {
        {Data("ifcfg/static"), 0, 0, "1 192.168.1.2 0.0.0.0 255.255.255.255"},
        {Data("ifcfg/none"), 0, 0, "1 10.1.0.1 0.0.0.0 255.255.255.255"},
        {Data("ifcfg/dhcp"), 0, 0, kNothing},
        {Data("ifcfg/commented"), 0, 0, kNothing},
        {"GATEWAY=10.0.0.1", 1, 0, kBoth},
        {"BOOTPROTO=static\nGATEWAY=255.255.255.255", 0, 0, kStatic},
        {"BOOTPROTO=" + std::string(128, 's') + "\nGATEWAY=10.0.0.1", 1, -1, kStatic},
        {"BOOTPROTO=none\nGATEWAY=" + std::string(128, '1'), 0, -1, kStatic},
    };
    for (const auto &[text, blStatic, iResult, szExpected] : cases) {
        const MemoryFile file(text);
        Table table;
        table.rgNetIf[1].blStatic = blStatic;
        EXPECT_EQ(iResult, ParseIfCfg(nullptr, file.Path().c_str(), &table.rgNetIf[1])) << text;
        EXPECT_EQ(szExpected, table.Eth0()) << text;
    }
}

}  // namespace
