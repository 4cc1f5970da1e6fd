// The process key pair. Calls of libsodium and malloc can be made to fail.
#include <qiven/keys.h>
#include <qiven/packet.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sodium.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

static std::string g_fails;

// A wrapper of each call: it fails when g_fails names it.
// NOLINTBEGIN(bugprone-macro-parentheses): types and argument lists are no expressions.
#define FAILING(type, name, parameters, arguments, failure)          \
    extern "C" type __real_##name parameters;                        \
    extern "C" type __wrap_##name parameters;                        \
    extern "C" type __wrap_##name parameters {                       \
        return g_fails == #name ? failure : __real_##name arguments; \
    }
FAILING(int, sodium_init, (), (), -1)
FAILING(void *, malloc, (size_t cb), (cb), nullptr)
FAILING(void *, sodium_malloc, (size_t cb), (cb), nullptr)
FAILING(int, crypto_box_keypair, (unsigned char *pPublic, unsigned char *pSecret), (pPublic, pSecret), -1)
FAILING(int, sodium_mprotect_readonly, (void *p), (p), -1)
FAILING(int, sodium_mprotect_noaccess, (void *p), (p), -1)
// NOLINTEND(bugprone-macro-parentheses)

namespace {

struct ProcessKeys : testing::Test {
    ~ProcessKeys() override {
        g_fails.clear();
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
    EXPECT_EQ(key, std::string(pKey, pKey + QIVEN_KEY_SIZE));
    EXPECT_EQ(ulProcessID, QIVENProcessGetID());

    unsigned char rgbDerived[QIVEN_KEY_SIZE];
    crypto_scalarmult_base(rgbDerived, QIVENProcessSecretKeyAcquire());
    EXPECT_EQ(0, QIVENProcessSecretKeyRelease());
    EXPECT_EQ(key, std::string(rgbDerived, rgbDerived + QIVEN_KEY_SIZE));  // the two keys are a pair

    EXPECT_EQ(0, QIVENProcessKeyCleanup());
    ExpectNoKeys();
    EXPECT_EQ(0U, QIVENProcessGetID());
    ASSERT_EQ(0, QIVENProcessKeyInit());
    EXPECT_NE(key, std::string(QIVENProcessPublicKeyGet(), QIVENProcessPublicKeyGet() + QIVEN_KEY_SIZE));
}

TEST_F(ProcessKeys, FailuresLeaveNoKeys) {
    for (const char *szCall : {"sodium_init", "malloc", "sodium_malloc", "crypto_box_keypair"}) {
        g_fails = szCall;
        const int iResult = QIVENProcessKeyInit();
        g_fails.clear();
        EXPECT_EQ(-1, iResult) << szCall;
        ExpectNoKeys();
    }
    ASSERT_EQ(0, QIVENProcessKeyInit());
    g_fails = "sodium_mprotect_readonly";
    EXPECT_EQ(nullptr, QIVENProcessSecretKeyAcquire());
    g_fails = "sodium_mprotect_noaccess";
    EXPECT_EQ(-1, QIVENProcessSecretKeyRelease());
}

enum class Access { Read, Write };

// Whether the one access kills a child process; everything else that could stop it would show as its exit.
bool Kills(const unsigned char *p, Access access) {
    const pid_t pid = fork();
    if (pid == 0) {
        signal(SIGSEGV, SIG_DFL);  // a sanitizer would turn the signal into an exit
        auto *pSecret = const_cast<volatile unsigned char *>(p);
        if (access == Access::Read) static_cast<void>(*pSecret);
        if (access == Access::Write) *pSecret = 1;
        _exit(0);
    }
    int iStatus = 0;
    EXPECT_EQ(pid, waitpid(pid, &iStatus, 0));
    const bool blKilled = WIFSIGNALED(iStatus) && WTERMSIG(iStatus) == SIGSEGV;
    EXPECT_TRUE(blKilled || iStatus == 0) << iStatus;
    return blKilled;
}

TEST_F(ProcessKeys, TheSecretKeyIsReadableWhileAcquiredOnly) {
    ASSERT_EQ(0, QIVENProcessKeyInit());
    const unsigned char *pSecret = QIVENProcessSecretKeyAcquire();
    ASSERT_NE(nullptr, pSecret);
    EXPECT_FALSE(Kills(pSecret, Access::Read));
    EXPECT_TRUE(Kills(pSecret, Access::Write));
    EXPECT_EQ(0, QIVENProcessSecretKeyRelease());
    EXPECT_TRUE(Kills(pSecret, Access::Read));
    EXPECT_TRUE(Kills(pSecret, Access::Write));

    // The sealed reader leaves it inaccessible, whether it could open the packet or not.
    const std::string header(stQIVENHeaderEncrypted, stQIVENHeaderEncrypted + sizeof stQIVENHeaderEncrypted);
    std::string box(sizeof stQIVENBroadCastV11 + crypto_box_SEALBYTES, '\0');
    crypto_box_seal(reinterpret_cast<unsigned char *>(box.data()), stQIVENBroadCastV11,
                    sizeof stQIVENBroadCastV11, QIVENProcessPublicKeyGet());
    const struct {
        std::string packet;
        int iResult;
    } cases[] = {
        {header + box, 12}, {header + box + "x", 0}, {header + "x", 0}, {header + std::string(9000, 'x'), 0}};
    for (const auto &c : cases) {
        nasinfo record;
        EXPECT_EQ(c.iResult,
                  QIVENPacketReadEncrypted(nullptr, reinterpret_cast<const unsigned char *>(c.packet.data()),
                                           static_cast<int>(c.packet.size()), &record));
        EXPECT_TRUE(Kills(pSecret, Access::Read)) << c.packet.size();
    }
}

}  // namespace
