// Handles in two threads at once: they share the key pair of the process, and
// each opens packets sealed for it.
#include <qiven/keys.h>

#include <atomic>
#include <thread>

#include "watch/cable.h"

namespace {

// Sends its own answers, sealed for the process, to all handles; returns the number that its handle opened.
unsigned AnswerAndListen(unsigned nAnswers, std::atomic<int> &nReady) {
    const QIVEN_ENDPOINT_CONF conf{sizeof conf, 0, 1U << QIVEN_PKT_ANSWER, nullptr, nullptr};
    QIVEN_ENDPOINT *p = nullptr;
    EXPECT_EQ(0, QIVENEndpointOpen(&p, &conf));
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string key;
    for (const unsigned char *pKey = QIVENProcessPublicKeyGet(); key.size() < 2 * QIVEN_KEY_SIZE; ++pKey)
        key += {kDigits[*pKey >> 4], kDigits[*pKey & 15]};
    nasinfo record{};
    record.ulPktType = QIVEN_PKT_ANSWER;
    const QIVEN_SEND send{&record, 2, {0x01, 0xA4}};
    const QIVEN_TO to{sizeof to, 0, 0, 7, key.c_str()};
    for (++nReady; nReady < 2;) {
    }
    unsigned nOpened = 0;
    const auto TakeAll = [&] {
        while (const QIVEN_RECEIVED *pReceived = QIVENEndpointReceive(p))
            nOpened += (pReceived->ulFlags & QIVEN_RECEIVED_SEALED) != 0 ? 1 : 0;
    };
    for (unsigned i = 0; i < nAnswers; ++i) {
        EXPECT_EQ(1, QIVENEndpointSend(p, &send, &to));
        TakeAll();
    }
    while (WaitReadable(QIVENEndpointFd(p), 500))
        TakeAll();
    QIVENEndpointClose(p);
    return nOpened;
}

TEST(Concurrency, HandlesInTwoThreadsShareTheKeys) {
    constexpr unsigned kAnswers = 200;
    sandbox::Enter();
    sandbox::AddEthernet("eth0", "02:00:00:00:00:01", "10.0.0.1/24 brd +");
    std::atomic<int> nReady{0};
    unsigned rgnOpened[2] = {};
    std::thread first([&] { rgnOpened[0] = AnswerAndListen(kAnswers, nReady); });
    std::thread second([&] { rgnOpened[1] = AnswerAndListen(kAnswers, nReady); });
    first.join();
    second.join();
    EXPECT_EQ(2 * kAnswers, rgnOpened[0]);
    EXPECT_EQ(2 * kAnswers, rgnOpened[1]);
    EXPECT_EQ(0, QIVENProcessKeyInited());
}

TEST(Concurrency, SearchesInTwoThreads) {
    sandbox::Enter();
    sandbox::AddEthernet("eth0", "02:00:00:00:00:01", "10.0.0.1/24 brd +");
    std::atomic<int> nSettled{0};
    const auto search = [&nSettled] {
        QIVEN_WATCH_CONF conf{};
        conf.cbSize = sizeof conf;
        conf.ulLimitMs = 300;
        QIVEN_WATCH *p = nullptr;
        EXPECT_EQ(0, QIVENWatchOpen(&p, &conf));
        for (bool blSettled = false; !blSettled && WaitReadable(QIVENWatchFd(p), 5000);) {
            QIVENWatchDispatch(p);
            while (const QIVEN_WATCH_EVENT *pEvent = QIVENWatchNext(p))
                blSettled |= pEvent->ulType == QIVEN_WATCH_SETTLED;
            nSettled += blSettled ? 1 : 0;
        }
        QIVENWatchClose(p);
    };
    std::thread first(search), second(search);
    first.join();
    second.join();
    EXPECT_EQ(2, nSettled);
}

}  // namespace
