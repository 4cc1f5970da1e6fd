// Calls of the library that tests bend: link qiven-interpose, and they come by here first.
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace interpose {

// Lets a call fail once, with this errno; of several calls the one after nBefore others.
void Fail(const std::string &call, int nBefore, int iErrno);
// Whether that failure is still to come.
bool IsPending();

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
