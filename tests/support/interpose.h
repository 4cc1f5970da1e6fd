// Time and messages of the library as tests want them: link qiven-interpose, and the calls come by here
// first. failing_calls.h, which comes with it, makes calls fail.
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "support/failing_calls.h"

namespace interpose {

// What the test does in the middle of a call of the library: nothing of it fails, or counts.
struct Aside {
    Aside() { FailingCallsSuspend(1); }
    ~Aside() { FailingCallsSuspend(-1); }
    Aside(const Aside &) = delete;
    Aside &operator=(const Aside &) = delete;
};

// Line numbers and descriptors as "#".
std::string HideNumbers(const std::string &text);
// What went to syslog since the last call, each as "priority|text", numbers hidden.
std::vector<std::string> TakeSyslog();

// A clock that does not run by itself: a wait that ends without a datagram takes its time from here, but
// lasts only msWait milliseconds.
struct Clock {
    bool blVirtual = false;
    time_t now = 0;
    int msWait = 0;
    int nSecondsPerDatagram = 0;
    int nWaits = 0;
    std::function<void()> fnOnWait;  // runs before each wait
};
extern Clock clock;

}  // namespace interpose
