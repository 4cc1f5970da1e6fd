#include <tavocore.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "support/failing_calls.h"

namespace {

// Too long for the small-string optimisation.
const std::string g_strLong(100, 'L');

// Runs a call with its 1st, 2nd, ... allocation failing, until it needs no more; returns how many failed.
template <class Call, class AfterFailure>
int FailEachAllocation(Call call, AfterFailure afterFailure) {
    for (int n = 0; n < 100; ++n) {
        FailingCallsArm("memory", n + 1, ENOMEM);
        const bool blOk = call();
        const bool blFailed = FailingCallsDisarm() != 0;
        EXPECT_EQ(blFailed, !blOk) << "allocation " << n;
        if (!blFailed) return n;
        afterFailure();
    }
    ADD_FAILURE() << "no end of allocations";
    return -1;
}

using Strings = std::vector<std::string>;

struct Core : testing::Test {
    ~Core() override {
        TLIBCSzHashFree(pHash);
        TLIBCSzListFree(pList);
    }
    int Set(const std::string &strKey, const std::string &strValue) {
        return TLIBCSzHashSetValue(&pHash, strKey.c_str(), strValue.c_str());
    }
    std::string Get(const std::string &strKey) const {
        const char *szValue = TLIBCSzHashGetValue(pHash, strKey.c_str());
        return szValue == nullptr ? "(none)" : szValue;
    }
    Strings Items() const {
        Strings rgItem;
        while (const char *sz = TLIBCSzListGet(pList, static_cast<int>(rgItem.size())))
            rgItem.emplace_back(sz);
        return rgItem;
    }
    TLIBC_SZHASH_HANDLE pHash = TLIBCSzHashAlloc(0);
    TLIBC_SZLIST_HANDLE pList = TLIBCSzListAlloc(0);
};

TEST_F(Core, HashInsertsReplacesAndRemoves) {
    for (const auto &[szKey, szValue] : {std::pair{"a", "1"}, {"A", "2"}, {"", "empty key"}, {"a", ""}})
        EXPECT_EQ(0, Set(szKey, szValue));
    EXPECT_EQ(3, TLIBCSzHashPairNum(pHash));
    EXPECT_EQ("", Get("a"));
    EXPECT_EQ("2", Get("A"));
    EXPECT_EQ("empty key", Get(""));

    EXPECT_EQ(1, TLIBCSzHashRemoveKey(pHash, "a"));
    EXPECT_EQ(0, TLIBCSzHashRemoveKey(pHash, "a"));
    EXPECT_EQ("(none)", Get("a"));
    EXPECT_EQ(2, TLIBCSzHashPairNum(pHash));
}

TEST_F(Core, HashCopiesWhatItIsGiven) {
    std::string strKey = g_strLong;
    std::string strValue = g_strLong + "value";
    EXPECT_EQ(0, Set(strKey, strValue));
    strKey[0] = strValue[0] = 'x';
    EXPECT_EQ(g_strLong + "value", Get(g_strLong));
    EXPECT_EQ(0, TLIBCSzHashSetValue(&pHash, g_strLong.c_str(),
                                     TLIBCSzHashGetValue(pHash, g_strLong.c_str()) + 1));  // its own text
    EXPECT_EQ(g_strLong.substr(1) + "value", Get(g_strLong));
}

TEST_F(Core, MissingMemoryLeavesAHashUnchanged) {
    EXPECT_EQ(0, Set(g_strLong, "old"));
    const auto unchanged = [this] {
        EXPECT_EQ(1, TLIBCSzHashPairNum(pHash));
        EXPECT_EQ("old", Get(g_strLong));
    };
    const std::string strOther = g_strLong + "other";
    EXPECT_LE(2, FailEachAllocation([&] { return Set(g_strLong, strOther) == 0; }, unchanged));
    EXPECT_EQ(0, Set(g_strLong, "old"));
    EXPECT_LE(3, FailEachAllocation([&] { return Set(strOther, strOther) == 0; }, unchanged));
    EXPECT_EQ(2, TLIBCSzHashPairNum(pHash));
    FailingCallsArm("memory", 1, ENOMEM);
    EXPECT_EQ(nullptr, TLIBCSzHashAlloc(0));
}

TEST_F(Core, HashGrowsAndAListReceivesEveryKey) {
    EXPECT_EQ(0, TLIBCSzHashEnumKey(pHash, &pList));
    std::set<std::string> setKey;
    for (int i = 0; i < 3000; ++i) {
        const std::string &strKey = *setKey.insert("key" + std::to_string(i)).first;
        ASSERT_EQ(0, Set(strKey, strKey));
    }
    for (const std::string &strKey : setKey)
        ASSERT_EQ(strKey, Get(strKey));

    EXPECT_EQ(1, TLIBCStrSep("before", ",", &pList));
    EXPECT_LE(2, FailEachAllocation([&] { return TLIBCSzHashEnumKey(pHash, &pList) == 3000; },
                                    [&] { EXPECT_EQ(Strings{"before"}, Items()); }));
    TLIBCHashRemoveAll(pHash);  // the list has copies
    EXPECT_EQ(0, TLIBCSzHashPairNum(pHash));

    const Strings rgItem = Items();
    ASSERT_EQ(3001U, rgItem.size());
    EXPECT_EQ(setKey, std::set<std::string>(rgItem.begin() + 1, rgItem.end()));
    EXPECT_EQ(nullptr, TLIBCSzListGet(pList, -1));
}

TEST_F(Core, ListAppendsAllFieldsOrNone) {
    EXPECT_EQ(2, TLIBCStrSep("a,b", ",", &pList));
    const std::string strText = g_strLong + "," + g_strLong + ",c";
    EXPECT_LE(3, FailEachAllocation([&] { return TLIBCStrSep(strText.c_str(), ",", &pList) == 3; },
                                    [this] {
                                        EXPECT_EQ((Strings{"a", "b"}), Items());
                                    }));
    EXPECT_EQ((Strings{"a", "b", g_strLong, g_strLong, "c"}), Items());

    // The text may be one of the list's own.
    TLIBCSzListRemoveAll(pList);
    EXPECT_EQ(1, TLIBCStrSep("x:y:z", ",", &pList));
    EXPECT_EQ(3, TLIBCStrSep(TLIBCSzListGet(pList, 0), ":", &pList));
    EXPECT_EQ((Strings{"x:y:z", "x", "y", "z"}), Items());
}

TEST_F(Core, RefusesNullAndNegative) {
    TLIBC_SZLIST_HANDLE pNoList = nullptr;
    EXPECT_EQ(nullptr, TLIBCSzHashAlloc(-1));
    EXPECT_EQ(nullptr, TLIBCSzHashGetValue(nullptr, "k"));
    for (const int iResult :
         {TLIBCSzHashSetValue(nullptr, "k", "v"), TLIBCSzHashSetValue(&pHash, nullptr, "v"),
          TLIBCSzHashEnumKey(nullptr, &pList), TLIBCStrSep("a", "", &pList), TLIBCStrSep("a", ",", &pNoList)})
        EXPECT_EQ(-1, iResult);
    EXPECT_EQ(0, TLIBCSzHashRemoveKey(nullptr, "k") | TLIBCSzHashPairNum(nullptr));
}

TEST_F(Core, TrimsBothEnds) {
    for (auto [strText, strExpected] : std::vector<std::pair<std::string, std::string>>{
             {" \t\n\v\f\r", ""}, {"\r\n \xa0 \t b \v\f", "\xa0 \t b"}}) {
        EXPECT_EQ(static_cast<int>(strExpected.size()), TLIBCStrTrimSpace(strText.data(), 0));
        EXPECT_EQ(strExpected, strText.c_str());
    }
}

TEST_F(Core, KnowsHostNames) {
    const std::string str63(63, 'a');
    const std::string str253 = str63 + "." + str63 + "." + str63 + "." + str63.substr(0, 61);
    for (const std::string &strGood :
         Strings{"7", "NAS-1", "a--b", "disk.example.com", "0a.z9", str63, str253})
        EXPECT_EQ(1, BlTLIBIsHostname(strGood.c_str())) << strGood;
    for (const std::string &strBad :
         Strings{"", "a.", ".a", "a..b", "-a", "a-.b", "a_b", "a\n", "a/b", "a:b", "a@b", "a[b", "a`b", "a{b",
                 "n\xc3\xa4s", str63 + "a", str253 + "a"})
        EXPECT_EQ(0, BlTLIBIsHostname(strBad.c_str())) << strBad;
}

TEST(FileTouch, CreatesForAllToReadAndTouchesNothingElse) {
    std::string strDir = testing::TempDir() + "/tavocore.XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(strDir.data()));
    const auto Path = [&](const char *szName) { return strDir + "/" + szName; };
    const mode_t maskBefore = umask(0);
    std::ofstream(Path("old")) << "lines";
    ASSERT_EQ(0, chmod(Path("old").c_str(), 0400));
    for (const auto &[szName, mode, cb] :
         {std::tuple{"new", S_IFREG | 0644U, 0}, {"old", S_IFREG | 0400U, 5}}) {
        EXPECT_EQ(0, TLIBCFileTouch(Path(szName).c_str()));
        struct stat st {};
        ASSERT_EQ(0, lstat(Path(szName).c_str(), &st));
        EXPECT_EQ(mode, st.st_mode);
        EXPECT_EQ(cb, st.st_size);
    }
    umask(maskBefore);

    std::ofstream(Path("victim")) << "precious";
    std::filesystem::create_symlink(Path("victim"), Path("link"));
    std::filesystem::create_symlink(Path("nowhere"), Path("dangling"));
    ASSERT_EQ(0, mkfifo(Path("fifo").c_str(), 0644));
    const std::pair<std::string, int> rgCase[] = {
        {Path("link"), ELOOP},  {Path("dangling"), ELOOP},      {strDir, EISDIR},
        {Path("fifo"), EEXIST}, {Path("missing/file"), ENOENT}, {Path("victim/x"), ENOTDIR},
    };
    for (const auto &[strPath, iErrno] : rgCase) {
        EXPECT_EQ(-1, TLIBCFileTouch(strPath.c_str())) << strPath;
        EXPECT_EQ(iErrno, errno) << strPath;
    }
    EXPECT_EQ(-1, TLIBCFileTouch(nullptr));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_FALSE(std::filesystem::exists(Path("nowhere")));
    EXPECT_EQ(8U, std::filesystem::file_size(Path("victim")));
    std::filesystem::remove_all(strDir);
}

TEST(LastError, BelongsToItsThread) {
    std::thread([] {
        const char *szFile = nullptr;
        int iLine = -1;
        EXPECT_EQ(0, TLIBCErrGetEx(&szFile, &iLine));
        EXPECT_STREQ("", szFile);
        EXPECT_EQ(0, iLine);

        std::string strFile = "socket/list";
        TLIBCErrSetEx(0x0900, strFile.c_str(), 42);
        strFile[0] = 'x';
        std::thread([] {
            EXPECT_EQ(0, TLIBCErrGet());
            TLIBCErrSetEx(0x0200, "other", 1);
        }).join();
        EXPECT_EQ(0x0900, TLIBCErrGetEx(&szFile, &iLine));
        EXPECT_STREQ("socket/list", szFile);
        EXPECT_EQ(42, iLine);

        TLIBCErrSetEx(6, std::string(300, 'f').c_str(), 4);
        EXPECT_EQ(6, TLIBCErrGetEx(&szFile, nullptr));
        EXPECT_EQ(std::string(255, 'f'), szFile);
    }).join();
}

}  // namespace
