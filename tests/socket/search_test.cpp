// The search, its host list and what is made of the list.
#include <qiven/keys.h>
#include <qiven/search.h>
#include <qiven/udp.h>
#include <tavocore.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "socket/dump_host.h"
#include "support/interpose.h"
#include "support/packets.h"
#include "support/sandbox.h"

namespace {

using Lines = std::vector<std::string>;
using Pairs = std::map<std::string, std::string>;

constexpr char kList[] = "/tmp/tavoqx.list";
constexpr char kFinished[] = "/tmp/tavoqx.list.tmp";
constexpr char kInst[] = "/tmp/grinst_chche.list";

// A hash that the library fills.
struct Hash {
    TLIBC_SZHASH_HANDLE pHash = TLIBCSzHashAlloc(8);
    ~Hash() { TLIBCSzHashFree(pHash); }
    int Read() { return TAVOQIVENGet2Hash(&pHash); }
    Pairs Content() const {
        Pairs pairs;
        TLIBC_SZLIST_HANDLE pKeys = TLIBCSzListAlloc(8);
        const int nKeys = TLIBCSzHashEnumKey(pHash, &pKeys);
        for (int i = 0; i < nKeys; ++i) {
            const char *szKey = TLIBCSzListGet(pKeys, i);
            pairs[szKey] = TLIBCSzHashGetValue(pHash, szKey);
        }
        TLIBCSzListFree(pKeys);
        return pairs;
    }
};

class Search : public testing::Test {
  protected:
    void SetUp() override {
        sandbox::Enter();
        sandbox::PrivateDir("/etc");
        sandbox::PrivateDir("/tmp");
        interpose::clock = {true, 0, 0, 0, 0, nullptr};
        interpose::TakeSyslog();
    }
};

TEST_F(Search, AnswersBecomeLinesOfTheList) {
    static const Lines answers{Answer(2, "nas1", "192.168.1.20", ""),
                               Answer(2, "nas2", "10.0.0.2", "id,2", 4294967295),
                               Answer(2, "nas1", "192.168.1.20", ""),
                               Answer(6, "inst", "10.0.0.6", "i6"),
                               Answer(1, "query", "10.0.0.3", ""),
                               Answer(3, "three", "10.0.0.3", ""),
                               Answer(0x80000002, "huge", "10.0.0.3", ""),
                               Answer(2, "bad name", "10.0.0.3", ""),
                               Answer(2, "-", "10.0.0.3", ""),
                               Answer(2, "", "10.0.0.3", ""),
                               Answer(2, "nowhere", "", ""),
                               "junk"};
    const std::string found =
        "7,300,nas1,192.168.1.20,\n7,4294967295,nas2,10.0.0.2,id,2\n7,300,nas1,192.168.1.20,\n";
    struct Case {
        const char *szName;
        bool blInst;
        std::string before;
        std::string expected;
    };
    const Case cases[] = {
        {"nothing there", false, "", found},
        {"lines of a failed search", true, "7,300,old,10.0.0.9,x\n", "7,300,old,10.0.0.9,x\n" + found}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.szName);
        if (c.blInst) sandbox::WriteFile(kInst, "");
        if (!c.before.empty()) sandbox::WriteFile(kList, c.before);
        interpose::clock.nWaits = 0;
        interpose::clock.fnOnWait = [] {
            EXPECT_NE(nullptr, gpLog);
            EXPECT_EQ(1, QIVENProcessKeyInited());
            for (size_t i = 0; interpose::clock.nWaits == 1 && i < answers.size(); ++i)
                SendTo(answers[i]);
        };
        const time_t start = interpose::clock.now;
        testing::internal::CaptureStderr();
        EXPECT_EQ(0, TAVOQIVENDumpHost());
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_EQ(12, interpose::clock.now - start);
        EXPECT_EQ(3, std::count(errors.begin(), errors.end(), '\n')) << errors;  // type 3 twice, and junk
        EXPECT_TRUE(errors.ends_with(" PacketRead Error! ret=[0]\n")) << errors;
        EXPECT_EQ(c.expected, sandbox::ReadFile(kFinished));
        EXPECT_FALSE(std::filesystem::exists(kList));
        EXPECT_EQ(c.blInst, std::filesystem::exists(kInst));
        EXPECT_EQ(c.blInst ? "7,300,inst,10.0.0.6,i6\n" : "", c.blInst ? sandbox::ReadFile(kInst) : "");
        EXPECT_EQ(nullptr, gpLog);
        EXPECT_EQ(0, QIVENProcessKeyInited());
        EXPECT_EQ(Lines{}, interpose::TakeSyslog());
    }
}

TEST_F(Search, TheFilterLetsAnswersThrough) {
    const std::map<uint32_t, int> cases{{0, 0}, {1, 0}, {2, 1}, {3, 0}, {4, 0}, {6, 1}, {7, 0}, {0x102, 0}};
    for (const auto &[ulPktType, iExpected] : cases) {
        nasinfo record{};
        record.ulPktType = ulPktType;
        EXPECT_EQ(iExpected, qiven::socket::checkNasinfoType(&record)) << ulPktType;
    }
}

// What a host does: it answers every query, and says by the pipe when it can hear.
std::string AnswerQueries(const char *szName, const char *szAddress, int fdReady) {
    static nasinfo record;
    static QIVEN_SEND send{&record, 5, {0x01, 0xA4, 0x48, 0x49, 0x11}};
    static int fd;
    static int nQueries;
    record.ulPktType = QIVEN_PKT_ANSWER;
    record.ulModel = 7;
    record.ulField49 = 300;
    record.ulIP = inet_addr(szAddress);
    snprintf(record.szHostName, sizeof record.szHostName, "%s", szName);
    send.rgPktID[send.nPktID++] = 0x12;
    fd = fdReady;
    QIVEN_CONN conn{"0.0.0.0", QIVEN_PORT, 20, [] { return nQueries == 2 ? 1 : 0; }, nullptr};
    QIVEN_RECV recv{};
    recv.pfnFilter = [](nasinfo *pRecord) { return pRecord->ulPktType == QIVEN_PKT_QUERY ? 1 : 0; };
    recv.pfnHandler = [](nasinfo * /*pRecord*/) {
        static const QIVEN_CONN to{"255.255.255.255", QIVEN_PORT, 0, nullptr, nullptr};
        ++nQueries;
        usleep(200'000);  // the search listens only after it has sent
        return QIVENUDPClient(&to, &send);
    };
    recv.pfnProgress = [](int /*iTimeout*/, int iElapsed, int /*iZero*/) {
        return iElapsed == 0 && write(fd, "r", 1) == 1 ? 0 : -1;
    };
    interpose::clock.blVirtual = false;
    return std::to_string(QIVENUDPServer(&conn, &recv, nullptr, nullptr));
}

TEST_F(Search, FindsTheHostsOfASegment) {
    const sandbox::Host searcher = sandbox::AddHost();
    sandbox::Connect(searcher, "segment", "eth0", "02:00:00:00:00:01", "10.0.0.1/24 brd +");
    const std::vector<std::pair<const char *, const char *>> hosts{{"nas1", "10.0.0.11"},
                                                                   {"nas2", "10.0.0.12"}};
    int ready[2];
    ASSERT_EQ(0, pipe2(ready, O_CLOEXEC));
    std::vector<sandbox::Process> answering;
    for (const auto &[szName, szAddress] : hosts) {
        const sandbox::Host host = sandbox::AddHost();
        sandbox::Connect(host, "segment", "eth0", std::string("02:00:00:00:01:") + (szAddress + 7),
                         szAddress + std::string("/24 brd +"));
        answering.push_back(sandbox::Start(host, [&ready, name = szName, address = szAddress] {
            return AnswerQueries(name, address, ready[1]);
        }));
    }
    for (size_t i = 0; i < hosts.size(); ++i) {
        char ch = 0;
        ASSERT_EQ(1, read(ready[0], &ch, 1));
    }
    EXPECT_EQ("0 ", sandbox::Finish(sandbox::Start(searcher, [] {
                  interpose::clock.msWait = 300;
                  return std::to_string(TAVOQIVENDumpHost()) + " ";
              })));
    for (const sandbox::Process &process : answering)
        EXPECT_EQ("0", sandbox::Finish(process));
    const std::string list = sandbox::ReadFile(kFinished);
    EXPECT_EQ(4, std::count(list.begin(), list.end(), '\n')) << list;  // each query, each host
    Hash hash;
    EXPECT_EQ(2, hash.Read());
    EXPECT_EQ((Pairs{{"nas1(10.0.0.11)", "10.0.0.11"}, {"nas2(10.0.0.12)", "10.0.0.12"}}), hash.Content());
    EXPECT_EQ(0, hash.Read());  // the list is gone
}

TEST_F(Search, LinesOfTheListBecomePairs) {
    using namespace std::string_literals;
    const std::string few = "3|socket/socket_qiven_get2hash:# field number < 5";
    const std::string zero = "3|socket/socket_qiven_get2hash:# model number == 0";
    const std::string name(2000, 'n');
    struct Case {
        std::string list;
        Pairs pairs;
        Lines messages;
    };
    const Pairs one{{"a(b)", "b"}};
    const Case cases[] = {
        {"", {}, {}},
        {"7,300,nas1,192.168.1.20,ab12\n", {{"nas1(192.168.1.20)", "192.168.1.20"}}, {}},
        {"7,240,a,b,\n7,239,c,d,\n7,,e,f,\n7,-300,g,h,\n", one, {}},
        {"1,999,a,b,,,x,,\n", one, {}},
        {" \t7,300,a,b,x \v\r\n", one, {}},
        {"7,300,a,b,x", one, {}},
        {"7,300,a,b,x\n7,300,a,b,y\n", one, {}},
        {"-1,300 apples,a,b,x\n", one, {}},
        {"7,300,,,\n", {{"()", ""}}, {}},
        {"7,300,a,b\n\n,\n", {}, {few, few, few}},
        {"0,300,a,b,x\nseven,300,a,b,x\n,300,a,b,x\n", {}, {zero, zero, zero}},
        {"0,1,a,b\n0,1,a,b,x\n", {}, {few, zero}},
        {"7,300,a,b,x\0,7,7\n7,300,\0c,d,x\n"s, one, {few}},
        {"7,300," + name + ",b,x\n", {{name.substr(0, 1023), "b"}}, {}},
        {"7,300,a,b," + std::string(100'000, 'x') + "\n7,300,c,d,x\n", {{"a(b)", "b"}, {"c(d)", "d"}}, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.list.substr(0, 60));
        Hash hash;
        TLIBCSzHashSetValue(&hash.pHash, "kept", "k");
        sandbox::WriteFile(kFinished, c.list);
        EXPECT_EQ(static_cast<int>(c.pairs.size()) + 1, hash.Read());
        Pairs expected = c.pairs;
        expected["kept"] = "k";
        EXPECT_EQ(expected, hash.Content());
        EXPECT_EQ(c.messages, interpose::TakeSyslog());
        EXPECT_FALSE(std::filesystem::exists(kFinished));
    }
}

TEST_F(Search, ListsThatAreNone) {
    const char *szFile = nullptr;
    Hash hash;
    EXPECT_EQ(-1, TAVOQIVENGet2Hash(nullptr));
    EXPECT_EQ(0x0D00, TLIBCErrGetEx(&szFile, nullptr));
    EXPECT_STREQ("socket/socket_qiven_get2hash", szFile);
    EXPECT_EQ(0, hash.Read());
    EXPECT_EQ(0x0900, TLIBCErrGet());
    sandbox::WriteFile(kFinished, "7,300,a,b,\n");
    interpose::Fail("TLIBCSzListAlloc", 0, 0);
    EXPECT_EQ(-1, hash.Read());
    EXPECT_EQ(0x0200, TLIBCErrGet());
    std::filesystem::create_directory(kFinished);
    EXPECT_EQ(-1, hash.Read());  // opens, but cannot be read
    std::filesystem::remove(kFinished);
    ASSERT_EQ(0, mkfifo(kFinished, 0600));
    EXPECT_EQ(0, hash.Read());  // nobody writes to it: empty, and gone
    EXPECT_FALSE(std::filesystem::exists(kFinished));
    EXPECT_EQ(Pairs{}, hash.Content());
}

}  // namespace
