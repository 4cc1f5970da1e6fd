// The search, its host list, and the reader of the list.
#include <qiven/keys.h>
#include <qiven/search.h>
#include <qiven/udp.h>
#include <tavocore.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "support/interpose.h"
#include "support/packets.h"
#include "support/sandbox.h"

namespace {

using Lines = std::vector<std::string>;

constexpr char kList[] = "/tmp/tavoqx.list";
constexpr char kFinished[] = "/tmp/tavoqx.list.tmp";
constexpr char kInst[] = "/tmp/grinst_chche.list";

// A hash that the library fills.
struct Hash {
    TLIBC_SZHASH_HANDLE pHash = TLIBCSzHashAlloc(8);
    ~Hash() { TLIBCSzHashFree(pHash); }
    int Read() { return TAVOQIVENGet2Hash(&pHash); }
};

class Search : public testing::Test {
  protected:
    void SetUp() override {
        sandbox::Enter();
        sandbox::PrivateDir("/etc");
        sandbox::PrivateDir("/tmp");
        interpose::clock = {true, 0, 0, 0, 0, nullptr, 0};
        interpose::TakeSyslog();
    }
};

TEST_F(Search, AnswersBecomeLinesOfTheList) {
    static const Lines answers{
        Answer(2, "nas1", "192.168.1.20", ""), Answer(2, "nas2", "10.0.0.2", "id,2", 4294967295),
        Answer(2, "nas1", "192.168.1.20", ""), Answer(6, "inst", "10.0.0.6", "i6"),
        Answer(1, "query", "10.0.0.3", ""),    Answer(0x80000002, "huge", "10.0.0.3", ""),
        Answer(2, "bad name", "10.0.0.3", ""), Answer(2, "", "10.0.0.3", ""),
        Answer(2, "nowhere", "", ""),          "junk"};
    const std::string found =
        "7,300,nas1,192.168.1.20,\n7,4294967295,nas2,10.0.0.2,id,2\n7,300,nas1,192.168.1.20,\n";
    const std::string old = "7,300,old,10.0.0.9,x\n";  // of a failed search
    for (const bool blBefore : {false, true}) {
        SCOPED_TRACE(blBefore);
        if (blBefore) sandbox::WriteFile(kInst, "");
        if (blBefore) sandbox::WriteFile(kList, old);
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
        EXPECT_EQ(1, std::count(errors.begin(), errors.end(), '\n')) << errors;
        EXPECT_TRUE(errors.ends_with(" PacketRead Error! ret=[0]\n")) << errors;
        EXPECT_EQ(blBefore ? old + found : found, sandbox::ReadFile(kFinished));
        EXPECT_FALSE(std::filesystem::exists(kList));
        EXPECT_EQ(blBefore, std::filesystem::exists(kInst));
        EXPECT_EQ(nullptr, gpLog);
        EXPECT_EQ(0, QIVENProcessKeyInited());
        EXPECT_EQ(Lines{}, interpose::TakeSyslog());
    }
    EXPECT_EQ("7,300,inst,10.0.0.6,i6\n", sandbox::ReadFile(kInst));

    Hash hash;  // what the second search finished
    EXPECT_EQ(3, hash.Read());
    EXPECT_STREQ("192.168.1.20", TLIBCSzHashGetValue(hash.pHash, "nas1(192.168.1.20)"));
    EXPECT_STREQ("10.0.0.2", TLIBCSzHashGetValue(hash.pHash, "nas2(10.0.0.2)"));
    EXPECT_STREQ("10.0.0.9", TLIBCSzHashGetValue(hash.pHash, "old(10.0.0.9)"));
    EXPECT_FALSE(std::filesystem::exists(kFinished));
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
    FailingCallsArm("memory", 2, ENOMEM);  // after the stream of the file
    EXPECT_EQ(-1, hash.Read());
    EXPECT_EQ(0x0200, TLIBCErrGet());
    std::filesystem::create_directory(kFinished);
    EXPECT_EQ(-1, hash.Read());  // opens, but cannot be read
    std::filesystem::remove(kFinished);
    ASSERT_EQ(0, mkfifo(kFinished, 0600));
    EXPECT_EQ(0, hash.Read());  // a FIFO without a writer: empty, and deleted
    EXPECT_FALSE(std::filesystem::exists(kFinished));
    std::filesystem::create_symlink("/dev/zero", kFinished);
    EXPECT_EQ(-1, hash.Read());
    EXPECT_FALSE(std::filesystem::exists(kFinished));
    EXPECT_EQ(Lines{}, interpose::TakeSyslog());
}

// Any user can put a list into /tmp. Lines that no search writes neither
// invalidate the list nor use up memory.
TEST_F(Search, LinesOfAnyLength) {
    sandbox::WriteFile(kFinished, "7,300,a,10.0.0.1," + std::string(65536 - 17, 'x') + "\n7,300,b,10.0.0.2," +
                                      std::string(65537 - 17, 'x') + "\n7,300,c,10.0.0.3,\n");
    std::filesystem::resize_file(kFinished, 1 << 29);
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    Hash hash;
    EXPECT_EQ(2, hash.Read());
    getrusage(RUSAGE_SELF, &after);
    EXPECT_GT(64 << 10, after.ru_maxrss - before.ru_maxrss);  // KiB
    EXPECT_STREQ("10.0.0.3", TLIBCSzHashGetValue(hash.pHash, "c(10.0.0.3)"));
    EXPECT_EQ(Lines(2, "3|socket/socket_qiven_get2hash:# line too long"), interpose::TakeSyslog());
}

}  // namespace
