#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/message.h"
#include "support/bytes_of.h"

namespace {

using Calls = std::vector<std::string>;
Calls g_calls;
int g_lockResult = 0;

int Lock(int iLock) {
    g_calls.push_back("lock " + std::to_string(iLock));
    return g_lockResult;
}
int Out(const char *szMessage) {
    g_calls.emplace_back(szMessage);
    return 42;
}

struct Logger : testing::Test {
    void SetUp() override {
        g_calls.clear();
        g_lockResult = 0;
    }
    QIVEN_LOG m_log{};
};

TEST_F(Logger, SetAndGetAcceptLevelsOneAndTwoOnly) {
    m_log.rgpfnLog[0] = Out;  // belongs to no level
    for (const int iLevel : {-1, 0, 3}) {
        EXPECT_EQ(-1, QIVENLogFuncSet(&m_log, iLevel, Out)) << iLevel;
        EXPECT_EQ(nullptr, QIVENLogFuncGet(&m_log, iLevel)) << iLevel;
        EXPECT_EQ(-1, QIVENLog(&m_log, iLevel, "x")) << iLevel;
    }
    EXPECT_EQ(-1, QIVENLogFuncSet(nullptr, 1, Out));
    EXPECT_EQ(nullptr, QIVENLogFuncGet(nullptr, 1));
    for (const int iLevel : {QIVEN_LOG_ERR, QIVEN_LOG_DEBUG}) {
        EXPECT_EQ(0, QIVENLogFuncSet(&m_log, iLevel, Out));
        EXPECT_EQ(Out, QIVENLogFuncGet(&m_log, iLevel));
        EXPECT_EQ(0, QIVENLogFuncSet(&m_log, iLevel, nullptr));
        EXPECT_EQ(nullptr, QIVENLogFuncGet(&m_log, iLevel));
    }
    EXPECT_TRUE(g_calls.empty());
}

TEST_F(Logger, LocksAroundTheOutputAndReturnsItsResult) {
    m_log = {Lock, {nullptr, Out, nullptr}};
    g_lockResult = 5;  // only -1 stops the message
    EXPECT_EQ(42, QIVENLog(&m_log, QIVEN_LOG_ERR, "%s=%d", "a", 7));
    EXPECT_EQ((Calls{"lock 1", "a=7", "lock 0"}), g_calls);
    EXPECT_EQ(5, QIVENLogLock(&m_log, 1));
    g_calls.clear();
    g_lockResult = -1;
    EXPECT_EQ(-1, QIVENLog(&m_log, QIVEN_LOG_ERR, "x"));
    EXPECT_EQ(Calls{"lock 1"}, g_calls);

    g_calls.clear();
    EXPECT_EQ(0, QIVENLog(&m_log, QIVEN_LOG_DEBUG, "off"));  // does not even take the lock
    EXPECT_EQ(-1, QIVENLog(&m_log, QIVEN_LOG_DEBUG, nullptr));
    EXPECT_EQ(-1, QIVENLog(nullptr, QIVEN_LOG_ERR, "x"));
    EXPECT_TRUE(g_calls.empty());
    EXPECT_EQ(-1, QIVENLogLock(nullptr, 1));
    m_log.pfnLock = nullptr;
    EXPECT_EQ(0, QIVENLogLock(&m_log, 1));
}

TEST_F(Logger, CutsAt8191Characters) {
    m_log = {nullptr, {nullptr, Out, Out}};
    for (const size_t cb : {8191U, 8192U, 20000U}) {
        g_calls.clear();
        QIVENLog(&m_log, QIVEN_LOG_DEBUG, "%s", std::string(cb, 'x').c_str());
        EXPECT_EQ((Calls{std::string(std::min<size_t>(cb, 8191), 'x')}), g_calls);
    }
    // The helper of the other modules truncates at the same length, including the prefix.
    g_calls.clear();
    qiven::base::Error(&m_log, {"module", 7}, "%s", std::string(9000, 'y').c_str());
    EXPECT_EQ((Calls{"module:7 " + std::string(8191 - 9, 'y')}), g_calls);
}

TEST_F(Logger, CheckReportsTheConditionWithTheCallersLine) {
    m_log = {nullptr, {nullptr, Out, nullptr}};
    EXPECT_TRUE(qiven::base::Check(&m_log, "module", true, "1 < 2"));
    EXPECT_TRUE(g_calls.empty());
    const int iLine = __LINE__ + 1;
    EXPECT_FALSE(qiven::base::Check(&m_log, "module", false, "%n < 2"));
    EXPECT_EQ((Calls{"module:" + std::to_string(iLine) + " Invaild Argument (%n < 2)=[0]\n"}), g_calls);
    EXPECT_FALSE(qiven::base::Check(nullptr, "module", false, "x"));
}

TEST_F(Logger, ConsoleWritesTheTextAsItIs) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, QIVENLogDefConsole("100%s no newline"));
    EXPECT_EQ("100%s no newline", testing::internal::GetCapturedStdout());
}

TEST(ByteOrder, MemoryHoldsTheNamedOrder) {
    EXPECT_EQ("\1\2", BytesOf(QIVENSocketHtons(0x0102)));
    EXPECT_EQ("\1\2\3\4", BytesOf(QIVENSocketHtonl(0x01020304)));
    EXPECT_EQ("\1\2\3\4\5\6\7\10", BytesOf(QIVENSocketHtonll(0x0102030405060708)));
    EXPECT_EQ("\4\3\2\1", BytesOf(QIVENSocketHtoLEl(0x01020304)));
    EXPECT_EQ("\10\7\6\5\4\3\2\1", BytesOf(QIVENSocketHtoLEll(0x0102030405060708)));
    EXPECT_EQ(0x0102, QIVENSocketNtohs(QIVENSocketHtons(0x0102)));
    EXPECT_EQ(0x01020304U, QIVENSocketNtohl(QIVENSocketHtonl(0x01020304)));
    EXPECT_EQ(0x0102030405060708U, QIVENSocketNtohll(QIVENSocketHtonll(0x0102030405060708)));
    EXPECT_EQ(0x01020304U, QIVENSocketLEtoHl(QIVENSocketHtoLEl(0x01020304)));
    EXPECT_EQ(0x0102030405060708U, QIVENSocketLEtoHll(QIVENSocketHtoLEll(0x0102030405060708)));
    EXPECT_EQ(0, QIVENSocketInit());
}

}  // namespace
