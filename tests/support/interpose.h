// Lets tests control the time and capture the messages of the library: link qiven-interpose to intercept the
// calls. failing_calls.h, which is part of it, makes calls fail.
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "support/failing_calls.h"

namespace interpose {

// Marks code of the test that runs inside a call of the library: its calls neither fail nor count.
struct Aside {
    Aside() { FailingCallsSuspend(1); }
    ~Aside() { FailingCallsSuspend(-1); }
    Aside(const Aside &) = delete;
    Aside &operator=(const Aside &) = delete;
};

// Line numbers and descriptors as "#".
std::string HideNumbers(const std::string &text);
// The syslog messages since the last call, each as "priority|text", with numbers replaced.
std::vector<std::string> TakeSyslog();

// A clock that does not advance by itself: a wait without a datagram advances it, but
// lasts only msWait milliseconds.
struct Clock {
    bool blVirtual = false;
    time_t now = 0;
    int msWait = 0;
    int nSecondsPerDatagram = 0;
    int nWaits = 0;
    std::function<void()> fnOnWait;  // runs before each wait
    int iReadError = 0;              // errno of every read, or 0: reads succeed
};
extern Clock clock;

}  // namespace interpose
