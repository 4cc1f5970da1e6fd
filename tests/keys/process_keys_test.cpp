// The process key pair.
#include <qiven/keys.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sodium.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "support/failing_calls.h"

static void *g_pSecret;
extern "C" void *__real_sodium_malloc(size_t cb);
extern "C" void *__wrap_sodium_malloc(size_t cb);
extern "C" void *__wrap_sodium_malloc(size_t cb) {
    return g_pSecret = __real_sodium_malloc(cb);
}

namespace {

struct ProcessKeys : testing::Test {
    ~ProcessKeys() override {
        FailingCallsDisarm();
        QIVENProcessKeyCleanup();
    }
    static void ExpectNoKeys() {
        EXPECT_EQ(0, QIVENProcessKeyInited());
        EXPECT_EQ(nullptr, QIVENProcessPublicKeyGet());
        EXPECT_EQ(nullptr, QIVENProcessSecretKeyAcquire());
        EXPECT_EQ(-1, QIVENProcessSecretKeyRelease());
        EXPECT_EQ(-1, QIVENProcessKeyCleanup());
    }
};

TEST_F(ProcessKeys, LiveFromInitToCleanup) {
    ExpectNoKeys();
    EXPECT_EQ(0U, QIVENProcessGetID());
    ASSERT_EQ(0, QIVENProcessKeyInit());
    EXPECT_EQ(1, QIVENProcessKeyInited());
    const unsigned char *pKey = QIVENProcessPublicKeyGet();
    const std::string key(pKey, pKey + QIVEN_KEY_SIZE);
    const uint32_t ulProcessID = QIVENProcessGetID();
    EXPECT_NE(0U, ulProcessID);
    EXPECT_EQ(0, QIVENProcessKeyInit());
    EXPECT_EQ(pKey, QIVENProcessPublicKeyGet());
    EXPECT_EQ(ulProcessID, QIVENProcessGetID());

    unsigned char rgbDerived[QIVEN_KEY_SIZE];
    crypto_scalarmult_base(rgbDerived, QIVENProcessSecretKeyAcquire());
    EXPECT_EQ(0, QIVENProcessSecretKeyRelease());
    EXPECT_EQ(key, std::string(rgbDerived, rgbDerived + QIVEN_KEY_SIZE));  // the two keys are a pair

    EXPECT_EQ(0, QIVENProcessKeyCleanup());
    EXPECT_EQ(0U, QIVENProcessGetID());
    ASSERT_EQ(0, QIVENProcessKeyInit());
    EXPECT_NE(key, std::string(QIVENProcessPublicKeyGet(), QIVENProcessPublicKeyGet() + QIVEN_KEY_SIZE));
}

TEST_F(ProcessKeys, FailuresLeaveNoKeys) {
    for (const char *szCall : {"sodium_init", "crypto_box_keypair"}) {
        FailingCallsArm(szCall, 1, ENOMEM);
        EXPECT_EQ(-1, QIVENProcessKeyInit()) << szCall;
        EXPECT_TRUE(FailingCallsDisarm());
        ExpectNoKeys();
    }
    ASSERT_EQ(0, QIVENProcessKeyInit());
    FailingCallsArm("sodium_mprotect", -1, ENOMEM);
    EXPECT_EQ(-1, QIVENProcessSecretKeyRelease());
}

// Whether reading or writing kills a child process with a signal; any other
// failure appears as an exit status.
bool Kills(const unsigned char *p, bool blWrite) {
    const pid_t pid = fork();
    if (pid == 0) {
        signal(SIGSEGV, SIG_DFL);  // a sanitizer would turn the signal into an exit
        auto *pSecret = const_cast<volatile unsigned char *>(p);
        if (blWrite) *pSecret = 1;
        static_cast<void>(*pSecret);
        _exit(0);
    }
    int iStatus = 0;
    EXPECT_EQ(pid, waitpid(pid, &iStatus, 0));
    EXPECT_TRUE(iStatus == 0 || WTERMSIG(iStatus) == SIGSEGV) << iStatus;
    return iStatus != 0;
}

TEST_F(ProcessKeys, TheSecretKeyIsReadableWhileAcquiredOnly) {
    ASSERT_EQ(0, QIVENProcessKeyInit());
    const unsigned char *pSecret = QIVENProcessSecretKeyAcquire();
    ASSERT_NE(nullptr, pSecret);
    EXPECT_FALSE(Kills(pSecret, false));
    EXPECT_TRUE(Kills(pSecret, true));
    EXPECT_EQ(0, QIVENProcessSecretKeyRelease());
    EXPECT_TRUE(Kills(pSecret, false));
    EXPECT_TRUE(Kills(pSecret, true));
}

// If the kernel refuses to change the protection, the page is leaked, but the key in it is wiped.
TEST_F(ProcessKeys, CleanupWipesMemoryThatItCannotFree) {
    for (const char *szState : {"writable", "readable", "hidden"}) {
        if (*szState == 'w') FailingCallsArm("sodium_mprotect", -1, ENOMEM);
        ASSERT_EQ(0, QIVENProcessKeyInit());
        if (*szState == 'r') QIVENProcessSecretKeyAcquire();
        FailingCallsArm("sodium_mprotect", -1, ENOMEM);
        EXPECT_EQ(0, QIVENProcessKeyCleanup());
        FailingCallsDisarm();
        ASSERT_EQ(0, sodium_mprotect_readonly(g_pSecret));
        const auto *pSecret = static_cast<const unsigned char *>(g_pSecret);
        EXPECT_EQ(1, sodium_is_zero(pSecret, QIVEN_KEY_SIZE)) << szState;
    }
}

}  // namespace
