#include "messages.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>

#include "output/format.h"
#include "output/text.h"
#include "rate_limit.h"

namespace qiven::messages {

namespace {

// Escaping makes four bytes of one at most, and a pipe takes a whole line of PIPE_BUF bytes or nothing.
constexpr size_t kLongest = 1000;
static_assert(4 * kLongest + 80 < PIPE_BUF);

// Standard error, or another descriptor of the same pipe or terminal.
struct Sink {
    int fd = STDERR_FILENO;
    bool blWaits = true;
    std::array<char, PIPE_BUF> rgcRest;  // of a line that was written in part
    size_t cbRest = 0;
    uint64_t nLost = 0;
};
Sink sink;

// The messages of the library.
struct LibraryMessages {
    bool blVerbose = false;
    std::string last;
    rate_limit::Bucket shown{20, 5};
    uint64_t nHeldBack = 0;
};
LibraryMessages library;

// Blocks the signals that a write can cause: the pipe has no reader, the file has reached its size limit, the
// terminal refuses output from the background. The error of the write gives the same information.
struct SignalsHeld {
    sigset_t held, before, pending;

    SignalsHeld() {
        sigemptyset(&held);
        sigaddset(&held, SIGPIPE);
        sigaddset(&held, SIGXFSZ);
        sigpending(&pending);
        sigset_t blocked = held;
        if (!sink.blWaits) sigaddset(&blocked, SIGTTOU);
        pthread_sigmask(SIG_BLOCK, &blocked, &before);
    }
    ~SignalsHeld() {
        constexpr timespec kAtOnce{};
        const int iErrno = errno;
        if (sigismember(&pending, SIGPIPE) == 0 && sigismember(&pending, SIGXFSZ) == 0)
            sigtimedwait(&held, nullptr, &kAtOnce);
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        errno = iErrno;
    }
    SignalsHeld(const SignalsHeld &) = delete;
    SignalsHeld &operator=(const SignalsHeld &) = delete;
};

bool IsWritable(int iTimeout) {
    pollfd writable{sink.fd, POLLOUT, 0};
    return poll(&writable, 1, iTimeout) > 0;
}

ssize_t WriteOnce(std::string_view bytes) {
    if (!sink.blWaits && sink.fd == STDERR_FILENO && !IsWritable(0)) {
        errno = EAGAIN;
        return -1;
    }
    return write(sink.fd, bytes.data(), bytes.size());
}

// Writes as much as possible, and removes it from the front.
void WriteAll(std::string_view &bytes) {
    const SignalsHeld held;
    while (!bytes.empty()) {
        const ssize_t cbWritten = WriteOnce(bytes);
        if (cbWritten > 0) {
            bytes.remove_prefix(static_cast<size_t>(cbWritten));
        } else if (cbWritten < 0 && errno == EINTR && sink.blWaits) {
            continue;
        } else if (cbWritten < 0 && errno == EAGAIN && sink.blWaits) {
            IsWritable(-1);
        } else {
            return;
        }
    }
}

// False if nothing was written. If only a part was written, the rest precedes the next line.
bool Deliver(std::string_view line) {
    std::string_view rest(sink.rgcRest.data(), sink.cbRest);
    if (!rest.empty()) WriteAll(rest);
    std::string_view left = line;
    if (rest.empty()) {
        WriteAll(left);
        if (left.size() < line.size()) rest = left;
    }
    sink.cbRest = std::min(rest.size(), sink.rgcRest.size());
    memmove(sink.rgcRest.data(), rest.data(), sink.cbRest);
    return left.size() < line.size();
}

void SayLost() {
    std::array<char, 80> rgcNote;
    const auto end =
        fmt::format_to_n(rgcNote.data(), rgcNote.size(), "qiven: {} messages were lost\n", sink.nLost);
    if (Deliver({rgcNote.data(), end.size})) sink.nLost = 0;
}

void ShowLibrary(std::string_view message) {
    ++library.nHeldBack;
    if (!Take(library.shown, rate_limit::Now())) return;
    const uint64_t nMore = library.nHeldBack - 1;
    Say(nMore == 0 ? std::string(message) : fmt::format("{} ({} more were held back)", message, nMore));
    library.nHeldBack = 0;
}

// An exception must not pass through the library. If memory runs out, the message is dropped.
int Receive(const char *szMessage) {
    try {
        std::string message = std::string(szMessage, strnlen(szMessage, kLongest / 2));
        while (!message.empty() && message.back() == '\n')
            message.pop_back();
        if (library.blVerbose) ShowLibrary(message);
        library.last = std::move(message);
    } catch (...) {
        return -1;
    }
    return 0;
}

}  // namespace

void Say(std::string_view text, std::string_view subcommand) noexcept {
    try {
        std::string line = subcommand.empty() ? "qiven: " : fmt::format("qiven {}: ", subcommand);
        line += text::Escape(text.substr(0, kLongest), !text::IsUtf8Locale());
        line += text.size() > kLongest ? "...\n" : "\n";
        if (sink.nLost > 0) SayLost();
        if (Deliver(line)) return;
    } catch (...) {  // no memory for the line
    }
    ++sink.nLost;
}

void Show(std::string_view bytes) noexcept {
    Deliver(bytes);
}

// Opens standard error again, without waiting, for this process only. This is possible for pipes and
// terminals; a file must not be opened again, because its position belongs to the descriptor.
NeverWait::NeverWait() noexcept {
    struct stat standardError {};
    if (fstat(STDERR_FILENO, &standardError) != 0) standardError.st_mode = 0;
    sink.blWaits = false;
    if (!S_ISFIFO(standardError.st_mode) && isatty(STDERR_FILENO) != 1) return;
    const int fd = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    // If that fails, as for a terminal of another user or for a socket, each write first checks whether it
    // would wait.
    if (fd >= 0) sink.fd = fd;
}

NeverWait::~NeverWait() {
    if (sink.fd != STDERR_FILENO) close(sink.fd);
    sink.fd = STDERR_FILENO;
    sink.blWaits = true;
}

QIVEN_LOG *Record(bool blVerbose) {
    static QIVEN_LOG record{};
    library.blVerbose = blVerbose;
    QIVENLogFuncSet(&record, QIVEN_LOG_ERR, Receive);
    return &record;
}

std::string TakeLast() {
    std::string last;
    last.swap(library.last);
    const size_t uPlace = last.find(' ');
    return uPlace == std::string::npos ? last : last.substr(uPlace + 1);
}

}  // namespace qiven::messages
