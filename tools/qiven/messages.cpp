#include "messages.h"

#include <fmt/format.h>

#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "text.h"

namespace qiven::messages {

namespace {

constexpr unsigned int kPerSecond = 20;
constexpr size_t kLongest = 500;

struct State {
    bool blVerbose = false;
    std::string last;
    time_t second = 0;
    unsigned int uThisSecond = 0;
    unsigned int uHeldBack = 0;
};
State state;

void Print(const std::string &line) {
    fmt::print(stderr, "{}\n", line);
}

void Show(const std::string &message) {
    const time_t now = time(nullptr);
    if (now != state.second) {
        if (state.uHeldBack > 0) Print(fmt::format("qiven: {} messages held back", state.uHeldBack));
        state.second = now;
        state.uThisSecond = state.uHeldBack = 0;
    }
    if (++state.uThisSecond > kPerSecond) {
        ++state.uHeldBack;
        return;
    }
    Print("qiven: " + text::Escape(message, !text::IsUtf8Locale()));
}

// The library must not see an exception; a message lost for lack of memory is no loss then.
int Receive(const char *szMessage) {
    try {
        std::string message = std::string(szMessage).substr(0, kLongest);
        while (!message.empty() && message.back() == '\n')
            message.pop_back();
        if (state.blVerbose) Show(message);
        state.last = std::move(message);
    } catch (...) {
        return -1;
    }
    return 0;
}

}  // namespace

QIVEN_LOG *Record(bool blVerbose) {
    static QIVEN_LOG record{};
    state.blVerbose = blVerbose;
    QIVENLogFuncSet(&record, QIVEN_LOG_ERR, Receive);
    return &record;
}

std::string TakeLast() {
    std::string last;
    last.swap(state.last);
    const size_t uPlace = last.find(' ');
    return uPlace == std::string::npos ? last : last.substr(uPlace + 1);
}

void Say(const std::string &text) {
    Print("qiven: " + text::Escape(text, !text::IsUtf8Locale()));
}

}  // namespace qiven::messages
