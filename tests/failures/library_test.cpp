// Each call of the library fails once at each position: the result and the messages must match the table, and
// nothing may stay allocated, mapped, open or readable. Each run is a separate process.
#include <qiven/qiven.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "failures/operations.h"

// In a coverage build, count the lines that the children execute as well.
extern "C" __attribute__((weak)) void __gcov_dump();

static const void *g_pSecret = nullptr;

extern "C" void *__real_sodium_malloc(size_t cb);
extern "C" void *__wrap_sodium_malloc(size_t cb);
extern "C" void *__wrap_sodium_malloc(size_t cb) {
    void *p = __real_sodium_malloc(cb);
    g_pSecret = p;
    return p;
}

namespace {

// A row of expected.txt.
struct Expected {
    std::string operation, calls, numbers, outcome;
};
std::vector<Expected> g_expected;

struct Failure {
    std::string call;
    int n, iErrno;
};

bool HasWord(const std::string &words, const std::string &word) {
    return (" " + words + " ").find(" " + word + " ") != std::string::npos;
}

std::string Replace(std::string text, const std::string &what, const std::string &with) {
    for (size_t i = 0; (i = text.find(what)) != std::string::npos;)
        text.replace(i, what.size(), with);
    return text;
}

void ReadExpected() {
    std::map<std::string, std::string> names{{"\\n", "\n"}};
    std::ifstream file(EXPECTED);
    for (std::string line; std::getline(file, line);) {
        std::smatch parts;
        static const std::regex definition("(<\\w+>) = (.*)"), row("(.*) ; (.*) ; (.*) ; (.*)");
        if (std::regex_match(line, parts, definition)) names[parts[1]] = Replace(parts[2], "\\n", "\n");
        if (!std::regex_match(line, parts, row)) continue;
        std::string outcome = parts[4];
        for (const auto &[name, text] : names)
            outcome = Replace(outcome, name, text);
        if (outcome.find(' ') == std::string::npos) outcome += ' ';  // no message
        g_expected.push_back({parts[1], parts[2], parts[3], outcome});
    }
}

// An empty queue is not a failure. The second read follows a wait that reported a datagram.
bool IsQuiet(const Operation &operation, const Failure &failure) {
    return operation.name == "listen" && failure.call == "recvfrom" && failure.n != 2 &&
           (failure.iErrno == EAGAIN || failure.iErrno == EINTR);
}

// What other libraries call inside the library's calls, in their own order and number.
bool IsForeign(const std::string &call) {
    return HasWord("memory mmap mprotect __getdelim getdelim", call);
}

// If a foreign call fails, a function may refuse, with whatever message, but must leave nothing behind.
bool IsRefusal(const std::string &outcome) {
    return outcome.starts_with("!-") && outcome.find("READABLE") == std::string::npos &&
           outcome.find("HELD") == std::string::npos && outcome.find("OPEN") == std::string::npos;
}

// The other outcomes that are right: one, or for foreign calls any of those that the table has.
std::vector<std::string> Expect(const Operation &operation, const Failure &failure,
                                const std::string &normal) {
    std::vector<std::string> outcomes;
    for (const Expected &row : g_expected) {
        if (IsQuiet(operation, failure) || row.operation != operation.name ||
            !HasWord(row.calls, failure.call))
            continue;
        const bool blNumber = row.numbers == "*" || HasWord(row.numbers, std::to_string(failure.n));
        if (!IsForeign(failure.call) && (!blNumber || !outcomes.empty())) continue;
        outcomes.push_back("!" + Replace(Replace(row.outcome, "{e}", std::to_string(failure.iErrno)), "{s}",
                                         strerror(failure.iErrno)));
    }
    if (outcomes.empty() || IsForeign(failure.call)) outcomes.push_back("!" + normal);
    return outcomes;
}

ptrdiff_t CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Let the kernel read the memory: it reports an error where our own read would crash.
bool IsReadable(const void *p) {
    int rgfd[2];
    if (pipe(rgfd) != 0) abort();
    const bool blReadable = p != nullptr && write(rgfd[1], p, 1) == 1;
    close(rgfd[0]);
    close(rgfd[1]);
    return blReadable;
}

// Runs in the child.
std::string Observe(const Operation &operation, const Failure &failure) noexcept {
    interpose::clock = {true, 0, 0, 0, 0, nullptr, 0};
    operation.prepare();
    LogCapture::Take();
    const auto nOpen = CountDescriptors();
    const long nHeld = FailingCallsHeld();
    FailingCallsArm(failure.call.c_str(), failure.n, failure.iErrno);
    const int iResult = operation.work();
    const bool blFailed = FailingCallsDisarm() != 0;
    const bool blReadable = IsReadable(g_pSecret);
    if (operation.name == "make keys") QIVENProcessKeyCleanup();
    const long nLeft = FailingCallsHeld() - nHeld;
    std::string text = blFailed ? "!" : "";
    text += std::to_string(iResult) + " ";
    for (const auto &lines : {LogCapture::Take(), interpose::TakeSyslog()})
        for (const std::string &line : lines)
            text += interpose::HideNumbers(line);
    if (blReadable) text += " READABLE";
    if (nLeft > 0) text += " HELD";
    if (CountDescriptors() != nOpen) text += " OPEN";
    return text;
}

// The outcome of an operation, preceded by "!" if the failure has happened.
std::string Try(const Operation &operation, const Failure &failure) {
    std::filesystem::remove("/tmp/tavoqx.list");
    int rgfd[2];
    if (pipe2(rgfd, O_CLOEXEC) != 0) return "no pipe";
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(20);
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        const std::string text = Observe(operation, failure);
        const bool blWritten = write(rgfd[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        if (__gcov_dump != nullptr) __gcov_dump();
        _exit(blWritten ? 0 : 1);
    }
    close(rgfd[1]);
    std::string text;
    char rgch[4096];
    for (ssize_t cb = 0; (cb = read(rgfd[0], rgch, sizeof rgch)) > 0;)
        text.append(rgch, static_cast<size_t>(cb));
    close(rgfd[0]);
    int iStatus = 0;
    waitpid(pid, &iStatus, 0);
    return iStatus == 0 ? text : "!ended with status " + std::to_string(iStatus);
}

std::vector<Failure> ReadCalls() {
    std::map<std::string, int> numbers;
    for (int i = 1; i < 134; ++i)
        if (strerrorname_np(i) != nullptr) numbers[strerrorname_np(i)] = i;
    std::vector<Failure> calls;
    std::ifstream file(CALLS);
    for (std::string line, call, error; std::getline(file, line);) {
        std::istringstream words(line);
        for (words >> call; call != "#" && words >> error;)
            calls.push_back({call, 1, numbers.at(error)});
    }
    return calls;
}

TEST(Failures, EveryCallFailsOnce) {
    const std::vector<Failure> calls = ReadCalls();  // before /tmp is covered, which may contain the file
    ReadExpected();
    ASSERT_FALSE(calls.empty() || g_expected.empty());
    sandbox::Enter();
    sandbox::PrivateDir("/etc");
    sandbox::PrivateDir("/tmp");
    sandbox::WriteFile("/etc/resolv.conf", "nameserver 10.0.0.53\n");
    sandbox::WriteFile("/etc/network/interfaces", "iface eth0 inet static\ngateway 10.0.0.254\n");
    sandbox::WriteFile("/etc/NetworkManager/system-connections/lan",
                       "mac-address=02:00:00:00:00:01\nmethod=manual\n");
    sandbox::AddEthernet("eth0", "02:00:00:00:00:01", "10.0.0.1/24 brd +");
    QIVENLogFuncSet(&g_log, QIVEN_LOG_ERR, KeepError);
    QIVENLogFuncSet(&g_log, QIVEN_LOG_DEBUG, KeepDebug);
    g_pHash = TLIBCSzHashAlloc(8);
    std::map<std::string, int> counts;
    for (const Operation &operation : kOperations) {
        const std::string normal = Try(operation, {"nothing", 1, 0});
        EXPECT_EQ(std::string::npos, normal.find("READABLE")) << operation.name;
        for (Failure failure : calls) {
            for (;; ++failure.n) {
                const std::string outcome = Try(operation, failure);
                if (outcome[0] != '!') {
                    EXPECT_EQ(normal, outcome);
                    break;
                }
                counts[failure.call]++;
                if (IsForeign(failure.call) && IsRefusal(outcome)) continue;
                const auto outcomes = Expect(operation, failure, normal);
                EXPECT_NE(outcomes.end(), std::find(outcomes.begin(), outcomes.end(), outcome))
                    << operation.name << ": " << failure.call << " " << failure.n << '\n'
                    << outcome << "\ninstead of " << testing::PrintToString(outcomes);
            }
        }
    }
    for (const auto &[call, n] : counts)
        RecordProperty(call, n);
}

}  // namespace
