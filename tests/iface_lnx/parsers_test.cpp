// The readers of configuration files, fed from memory.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>

#include "iface_lnx/iface_lnx.h"
#include "support/log_capture.h"
#include "support/memory_file.h"

namespace {

using namespace qiven::iface_lnx;
using Lines = std::vector<std::string>;

constexpr unsigned char kMac[6] = {0x02, 0x1b, 0x3c, 0x0a, 0x0b, 0x0c};

std::string Dotted(uint32_t ulAddr) {
    return inet_ntoa(in_addr{ulAddr});
}

std::string Data(const std::string &name) {
    std::ifstream file(QIVEN_TEST_DATA "/etc/" + name, std::ios::binary);
    if (!file) throw std::runtime_error("no test data " + name);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Two interfaces, eth1 and eth0, of which the second has the address that the files name.
struct Table {
    Table() {
        for (auto &netIf : rgNetIf)
            memset(&netIf, 0, sizeof netIf);
        strcpy(rgNetIf[0].szIfName, "eth1");
        rgNetIf[0].rgMac[0] = 0x02;
        strcpy(rgNetIf[1].szIfName, "eth0");
        memcpy(rgNetIf[1].rgMac, kMac, sizeof kMac);
        // Past the count: must never be found.
        rgNetIf[2] = rgNetIf[1];
        gulDNS = INADDR_NONE;
    }
    // "static gateway dns gulDNS" of eth0; throws when another record was touched.
    std::string Eth0() const {
        const QIVEN_NETIF &other = rgNetIf[0];
        if (other.blStatic != 0 || other.ulGateway != 0 || other.ulDNS != 0 || rgNetIf[2].blStatic != 0 ||
            rgNetIf[2].ulGateway != 0 || rgNetIf[2].ulDNS != 0)
            throw std::runtime_error("a record was changed that should not be");
        const QIVEN_NETIF &netIf = rgNetIf[1];
        return std::to_string(netIf.blStatic) + ' ' + Dotted(netIf.ulGateway) + ' ' + Dotted(netIf.ulDNS) +
               ' ' + Dotted(gulDNS);
    }
    std::array<QIVEN_NETIF, 3> rgNetIf;
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
    struct Case {
        std::string_view text;
        const char *szExpected;
    };
    const Case cases[] = {
        {"", "0"},
        {"K=v", "=v"},  // no end-of-line
        {"K=v\n", "=v"},
        {"K=v\r\n", "=v"},
        {"K=1\nK=2\n", "=1"},
        {"KK=1\nK1=2\nk=3\n K K=4\nK=5\n", "=5"},
        {" \t K \t = \t v w \t\n", "=v w"},
        {"K==v", "=v"},
        {"K= = \t=v=w=", "=v=w="},
        {"K\v\f =v\v\f\n", "=v"},
        {"K=\vv\n", "=\vv"},  // blanks in front are space and tab, nothing else
        {"\vK=v\n", "0"},
        {"K", "="},
        {"K\n", "="},
        {"K=\n", "="},
        {"K= \t \n", "="},
        {"#K=1\n \t#K=2\n\n\r\n \t\nK=3#4 # 5\n", "=3#4 # 5"},
        {"K=\"v\"\n", "=v"},
        {"K=\" v \" \n", "= v "},
        {"K=\"\n", "="},
        {"K=\"\"\n", "="},
        {"K=\"\"\"\n", "=\""},
        {"K=\"v\n", "=\"v"},
        {"K=v\"\n", "=v\""},
        {"K='v'\n", "='v'"},
        {"[a]\nX=1\n[b]\nK=2\n", "=2"},
        {"K=v\\\nw\n", "=v\\"},
        {"=v\nK=w", "=w"},
        {"K=a\0b\n"sv, "=a"},  // a NUL ends the line's text
        {"K\0=a\nK=b\n"sv, "="},
        {"\0K=a\nK=b\n"sv, "=b"},
        {"K=%s%n\n", "=%s%n"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.szExpected, Find(c.text, "K")) << c.text;
    EXPECT_EQ("=192.168.1.1", Find("nameserver  192.168.1.1 \n", "nameserver", ' '));
    EXPECT_EQ("0", Find("nameserver\t192.168.1.1\n", "nameserver", ' '));
    EXPECT_EQ("=192.168.1.1", Find("nameserver\t 192.168.1.1\n", "nameserver", ' '));
    EXPECT_EQ("=1.1.1.1 # mine", Find("nameserver 1.1.1.1 # mine\n", "nameserver", ' '));
}

TEST(GetKeyValue, TakesLinesOfAnyLengthAndValuesUpTo127Characters) {
    const std::string longLine = "X=" + std::string(1 << 20, 'x') + "\n";
    EXPECT_EQ("=v", Find(longLine + "K=v\n", "K"));
    EXPECT_EQ("=v", Find(std::string(1 << 20, ' ') + "K" + std::string(1 << 20, '\t') + "=v\n", "K"));
    EXPECT_EQ("=" + std::string(127, 'y'), Find("K=" + std::string(127, 'y') + "   \n", "K"));
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

TEST(GetKeyValue, SearchesTheWholeStreamEachTime) {
    const MemoryFile file("A=1\nB=2\n");
    char szValue[kValueSize];
    for (const char *szKey : {"B", "A", "B"}) {
        EXPECT_EQ(1, GetKeyValue(nullptr, file.Stream(), szKey, szValue, '='));
        EXPECT_STREQ(*szKey == 'A' ? "1" : "2", szValue);
    }
    EXPECT_EQ(0, GetKeyValue(nullptr, file.Stream(), "C", szValue, '='));
    EXPECT_EQ(1, GetKeyValue(nullptr, file.Stream(), "A", szValue, '='));
}

TEST(GetKeyValue, ReportsBadArgumentsInOrder) {
    LogCapture log;
    const MemoryFile file("K=v\n");
    char szValue[kValueSize];
    FILE *const pf = file.Stream();
    EXPECT_EQ(-1, GetKeyValue(log.Record(), nullptr, nullptr, nullptr, 0));
    EXPECT_EQ(-1, GetKeyValue(log.Record(), pf, nullptr, nullptr, 0));
    EXPECT_EQ(-1, GetKeyValue(log.Record(), pf, "K", nullptr, 0));
    EXPECT_EQ(-1, GetKeyValue(log.Record(), pf, "K", szValue, 0));
    const std::string rest[] = {
        Invalid("iface_lnx", "((void *)0) != szKey"),
        Invalid("iface_lnx", "((void *)0) != szValue"),
        Invalid("iface_lnx", "0 != chDelim"),
    };
    EXPECT_EQ((Lines{Invalid("iface_lnx", "((void *)0) != pfSrc"), rest[0], rest[1], rest[2]}), log.Take());

    EXPECT_EQ(-1, GetKeyValueFromFile(log.Record(), nullptr, nullptr, nullptr, 0));
    EXPECT_EQ(-1, GetKeyValueFromFile(log.Record(), "/nowhere", nullptr, nullptr, 0));
    EXPECT_EQ(-1, GetKeyValueFromFile(log.Record(), "/nowhere", "K", nullptr, 0));
    EXPECT_EQ(-1, GetKeyValueFromFile(log.Record(), "/nowhere", "K", szValue, 0));
    EXPECT_EQ((Lines{Invalid("iface_lnx", "((void *)0) != szFile"), rest[0], rest[1], rest[2]}), log.Take());

    EXPECT_EQ(-1, GetKeyValueFromFile(log.Record(), "/nowhere", "K", szValue, '='));
    EXPECT_EQ(Lines{"1|iface_lnx:# failed to open file /nowhere error:(2)"}, log.Take());
    EXPECT_EQ(0, GetKeyValueFromFile(log.Record(), "/", "K", szValue, '='));  // opens, cannot be read
    EXPECT_EQ(Lines{}, log.Take());
}

std::string Keyfile(std::string_view text, Table table = {}) {
    const MemoryFile file(text);
    ParseNMKeyfile(nullptr, file.Stream(), table.rgNetIf.data(), Table::kCount);
    return table.Eth0();
}

TEST(NMKeyfile, AsTheProgramsWriteThem) {
    EXPECT_EQ("1 0.0.0.0 8.8.8.8 8.8.8.8", Keyfile(Data("keyfiles/office.nmconnection")));
    EXPECT_EQ("0 0.0.0.0 0.0.0.0 255.255.255.255", Keyfile(Data("keyfiles/lab.nmconnection")));
    EXPECT_EQ("0 0.0.0.0 0.0.0.0 255.255.255.255", Keyfile(Data("keyfiles/anywhere.nmconnection")));
    EXPECT_EQ("0 0.0.0.0 0.0.0.0 255.255.255.255", Keyfile(Data("keyfiles/cafe.nmconnection")));
    EXPECT_EQ("0 0.0.0.0 0.0.0.0 255.255.255.255", Keyfile(Data("keyfiles/v6only.nmconnection")));
    EXPECT_EQ("1 192.168.1.254 10.0.0.53 10.0.0.53", Keyfile(Data("keyfiles/classic")));
}

TEST(NMKeyfile, HardwareAddress) {
    const char *const found[] = {
        "02:1b:3c:0a:0b:0c",     "2:1B:3C:A:B:C",        "0x02:0X1b:3c:0a:0b:0c",
        "02: 1b:\t3c:0a:0b:0c",  "02:1b:3c:0a:0b:0c:0d", "02:1b:3c:0a:0b:0c and more",
        "102:f1b:3c:0a:0b:ff0c", "02:1b:3c:0a:0b:+c",    "-fe:1b:3c:0a:0b:0c",
    };
    const char *const unknown[] = {
        "",
        "02:1b:3c:0a:0b",
        "02:1b:3c:0a:0b:",
        "02:1b:3c:0a:0b:0d",
        "02-1b-3c-0a-0b-0c",
        "02 :1b:3c:0a:0b:0c",
        "02::1b:3c:0a:0b:0c",
        "021b3c0a0b0c",
        "zz:1b:3c:0a:0b:0c",
        "ffffffffffffffffffffffff02:1b:3c:0a:0b:0c",
    };
    for (const char *szMac : found)
        EXPECT_EQ("1 0.0.0.0 0.0.0.0 255.255.255.255",
                  Keyfile(std::string("mac-address=") + szMac + "\nmethod=manual\n"))
            << szMac;
    for (const char *szMac : unknown)
        EXPECT_EQ("0 0.0.0.0 0.0.0.0 255.255.255.255",
                  Keyfile(std::string("mac-address=") + szMac + "\nmethod=manual\ndns=8.8.8.8;\n"))
            << szMac;
}

TEST(NMKeyfile, Values) {
    struct Case {
        const char *szLines;
        const char *szExpected;
    };
    const Case cases[] = {
        {"method=MANUAL", "1 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"method=manually", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"method=auto\nmethod=manual", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"dns=8.8.8.8", "0 0.0.0.0 8.8.8.8 8.8.8.8"},
        {"dns=8.8.8.8;;", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"dns=;", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"dns=", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"dns=255.255.255.255;", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"addresses1=192.168.1.10;24;192.168.1.1;", "0 192.168.1.1 0.0.0.0 255.255.255.255"},
        {"addresses1=;;192.168.1.10;;24;;192.168.1.1", "0 192.168.1.1 0.0.0.0 255.255.255.255"},
        {"addresses1=192.168.1.10;24;", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"addresses1=192.168.1.10;24;fe80::1;10.0.0.1", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"addresses1=;;;", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"addresses2=192.168.1.10;24;192.168.1.1;", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.szExpected, Keyfile(std::string("mac-address=02:1B:3C:0A:0B:0C\n") + c.szLines))
            << c.szLines;

    Table known;
    gulDNS = inet_addr("10.0.0.1");
    known.rgNetIf[1].blStatic = 1;
    const std::string file = "mac-address=02:1B:3C:0A:0B:0C\nmethod=auto\ndns=8.8.8.8\n";
    EXPECT_EQ("1 0.0.0.0 8.8.8.8 10.0.0.1", Keyfile(file, known));
}

TEST(NMKeyfile, OneValueTooLongIsOneMissingKey) {
    LogCapture log;
    Table table;
    const MemoryFile file("mac-address=02:1B:3C:0A:0B:0C\nmethod=manual\ndns=" + std::string(200, '8') +
                          "\naddresses1=1.2.3.4;8;10.0.0.1\n");
    ParseNMKeyfile(log.Record(), file.Stream(), table.rgNetIf.data(), Table::kCount);
    EXPECT_EQ("1 10.0.0.1 0.0.0.0 255.255.255.255", table.Eth0());
    EXPECT_EQ(Lines{"1|iface_lnx:# buffer len 128, requires 201"}, log.Take());

    const std::string classic = Data("keyfiles/classic");
    const MemoryFile match(classic);
    for (const int n : {-1, 0, 1}) {  // eth0 is not in this part of the table
        ParseNMKeyfile(nullptr, match.Stream(), table.rgNetIf.data(), n);
        EXPECT_EQ("1 10.0.0.1 0.0.0.0 255.255.255.255", table.Eth0()) << n;
    }
}

// Result, then what the record holds.
std::string IfCfg(std::string_view text, int blStatic = 0) {
    const MemoryFile file(text);
    Table table;
    table.rgNetIf[1].blStatic = blStatic;
    const int iResult = ParseIfCfg(nullptr, file.Path().c_str(), &table.rgNetIf[1]);
    return std::to_string(iResult) + ": " + table.Eth0();
}

TEST(IfCfg, StaticAndGateway) {
    struct Case {
        std::string text;
        int blStatic;
        const char *szExpected;
    };
    const Case cases[] = {
        {Data("ifcfg/static"), 0, "0: 1 192.168.1.2 0.0.0.0 255.255.255.255"},
        {Data("ifcfg/none"), 0, "0: 1 10.1.0.1 0.0.0.0 255.255.255.255"},
        {Data("ifcfg/dhcp"), 0, "0: 0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {Data("ifcfg/dhcp"), 1, "0: 1 192.168.1.3 0.0.0.0 255.255.255.255"},
        {Data("ifcfg/commented"), 0, "0: 0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"", 0, "0: 0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"GATEWAY=10.0.0.1", 1, "0: 1 10.0.0.1 0.0.0.0 255.255.255.255"},
        {"BOOTPROTO=STATIC", 0, "0: 1 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"BOOTPROTO=static\nGATEWAY=fe80::1", 0, "0: 1 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"BOOTPROTO=static\nGATEWAY=255.255.255.255", 0, "0: 1 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"BOOTPROTO=" + std::string(128, 's') + "\nGATEWAY=10.0.0.1", 1,
         "-1: 1 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"BOOTPROTO=none\nGATEWAY=" + std::string(128, '1'), 0, "-1: 1 0.0.0.0 0.0.0.0 255.255.255.255"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.szExpected, IfCfg(c.text, c.blStatic)) << c.text;
}

TEST(IfCfg, ReportsBadArgumentsAndMissingFiles) {
    LogCapture log;
    QIVEN_NETIF netIf{};
    EXPECT_EQ(-1, ParseIfCfg(log.Record(), nullptr, nullptr));
    EXPECT_EQ(-1, ParseIfCfg(log.Record(), "/nowhere", nullptr));
    EXPECT_EQ(-1, ParseIfCfg(log.Record(), "/nowhere", &netIf));
    EXPECT_EQ((Lines{Invalid("iface_lnx", "((void *)0) != szIfCfg"), Invalid("iface_lnx", "NULL != pNetIf"),
                     "1|iface_lnx:# failed to open file /nowhere error:(2)"}),
              log.Take());
}

std::string Stanzas(std::string_view text) {
    const MemoryFile file(text);
    Table table;
    ParseStanzas(file.Stream(), table.rgNetIf.data(), Table::kCount);
    return table.Eth0();
}

TEST(NetworkInterfaces, Stanzas) {
    using namespace std::string_view_literals;
    struct Case {
        std::string_view text;
        const char *szExpected;
    };
    const std::string desktop = Data("interfaces/desktop");
    const Case cases[] = {
        {desktop, "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"iface eth0 inet static\n\tgateway 192.168.1.1\n", "1 192.168.1.1 0.0.0.0 255.255.255.255"},
        {"iface eth0 inet dhcp\n gateway 192.168.1.1", "0 192.168.1.1 0.0.0.0 255.255.255.255"},
        {"\t iface\t eth0  inet\tSTATIC\r\n\r\ngateway\t192.168.1.1\r\n",
         "1 192.168.1.1 0.0.0.0 255.255.255.255"},
        {"iface eth0 inet\ngateway 10.0.0.1", "0 10.0.0.1 0.0.0.0 255.255.255.255"},
        {"iface eth0\n", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"iface eth0 inet statically", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"iface ETH0 inet static\ngateway 10.0.0.1", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"gateway 10.0.0.1\niface eth0 inet dhcp\n", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"iface eth0 inet dhcp\niface\ngateway 10.0.0.1\n", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"iface eth0 inet dhcp\niface eth9 inet static\ngateway 10.0.0.1\n",
         "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"iface eth0 inet dhcp\nauto eth9\naddress 1.2.3.4\ngateway 10.0.0.1\n",
         "0 10.0.0.1 0.0.0.0 255.255.255.255"},
        {"iface eth0 inet dhcp\ngateway 10.0.0.1\ngateway fe80::1\ngateway\ngateway 10.0.0.2 metric 5\n",
         "0 10.0.0.2 0.0.0.0 255.255.255.255"},
        {"iface eth0 inet dhcp\n#gateway 10.0.0.1\n", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"iface eth0 inet dhcp\ngateway10.0.0.1\n", "0 10.0.0.1 0.0.0.0 255.255.255.255"},
        {"interface eth0 inet static\n", "0 0.0.0.0 0.0.0.0 255.255.255.255"},
        {"iface eth0 inet static\0\ngateway \0 10.0.0.1\n"sv, "1 0.0.0.0 0.0.0.0 255.255.255.255"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.szExpected, Stanzas(c.text)) << c.text;
    const std::string blanks(1 << 20, ' ');
    EXPECT_EQ("1 10.0.0.1 0.0.0.0 255.255.255.255",
              Stanzas("iface" + blanks + "eth0 inet static\ngateway" + blanks + "10.0.0.1" + blanks));
    EXPECT_EQ("0 0.0.0.0 0.0.0.0 255.255.255.255", Stanzas("iface " + std::string(1 << 20, 'e')));
}

TEST(NetworkInterfaces, SeveralInterfaces) {
    const std::string server = Data("interfaces/server");
    const MemoryFile file(server);
    Table table;
    ParseStanzas(file.Stream(), table.rgNetIf.data(), Table::kCount);
    EXPECT_EQ(0, table.rgNetIf[0].blStatic);
    EXPECT_EQ("10.0.0.1", Dotted(table.rgNetIf[0].ulGateway));
    EXPECT_EQ(1, table.rgNetIf[1].blStatic);
    EXPECT_EQ("192.168.1.1", Dotted(table.rgNetIf[1].ulGateway));
}

}  // namespace
