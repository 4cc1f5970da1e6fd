// Each call of the library fails once at each position: the result and the messages must match the table, and
// nothing may stay allocated, mapped, open or readable. Each run is a separate process.
#include <qiven/qiven.h>
#include <tavocore.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sodium.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>

#include "support/interpose.h"
#include "support/log_capture.h"
#include "support/packets.h"
#include "support/sandbox.h"

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

using interpose::Aside;

QIVEN_LOG g_log;

int KeepError(const char *sz) {
    const Aside aside;
    return LogCapture::Keep(QIVEN_LOG_ERR, sz);
}
int KeepDebug(const char *sz) {
    const Aside aside;
    return LogCapture::Keep(QIVEN_LOG_DEBUG, sz);
}

// The data of the operations, created before the failures begin.
QIVEN_NETIF g_rgNetIf[2];
nasinfo g_record;
QIVEN_SEND g_send;
std::string g_sealed;
char g_szKey[QIVEN_KEY_HEX_SIZE], g_szEncoded[33], g_szText[64];
TLIBC_SZHASH_HANDLE g_pHash;

void MakeKeys() {
    QIVENProcessKeyInit();
    sodium_bin2hex(g_szKey, sizeof g_szKey, QIVENProcessPublicKeyGet(), QIVEN_KEY_SIZE);
    g_sealed.assign(20 + crypto_box_SEALBYTES, '\0');
    crypto_box_seal(reinterpret_cast<unsigned char *>(g_sealed.data()), stQIVENBroadCastV11, 20,
                    QIVENProcessPublicKeyGet());
    g_sealed.insert(0, reinterpret_cast<const char *>(stQIVENHeaderEncrypted), sizeof stQIVENHeaderEncrypted);
    g_record.ulPktType = QIVEN_PKT_QUERY;
    g_send = {&g_record, 2, {0x01, 0xA4}};
}
void FillStore() {
    FailingCallsUptime(10'000);  // four passes over the store before it is emptied
    for (uint32_t i = 1; i <= QIVEN_KEYS_MAX; ++i)
        QIVENAddKey("nas", i, "k");
}
void AddKey() {
    QIVENAddKey("nas1", 1, "k");
}
void Arrive(const std::string &packet) {
    static std::string arriving;
    arriving = packet;
    interpose::clock.fnOnWait = [] {
        if (interpose::clock.nWaits == 1) SendTo(arriving);
    };
}

int UseKey() {
    return QIVENProcessSecretKeyAcquire() == nullptr ? -2 : QIVENProcessSecretKeyRelease();
}
int ReadSealed() {
    return QIVENPacketReadEncrypted(&g_log, reinterpret_cast<const unsigned char *>(g_sealed.data()),
                                    static_cast<int>(g_sealed.size()), &g_record);
}
// A buffer that is too small makes the writers allocate a larger one; the size that they return must be true.
int WriteSealed() {
    FailingCallsSuspend(1);
    auto *pBuffer = static_cast<char *>(malloc(1));
    FailingCallsSuspend(-1);
    int cbBuffer = 0;
    const int cb = QIVENPacketWriteEncrypted(&g_log, &pBuffer, &cbBuffer, &g_send, g_szKey);
    const Aside aside;
    free(pBuffer);
    return cb == cbBuffer ? cb : -cbBuffer;
}
// The number of interfaces, preceded by a 1 for each known property of the only interface.
int Interfaces() {
    const int n = QIVENIfaceInit(&g_log, g_rgNetIf, 2);
    const QIVEN_NETIF &netIf = g_rgNetIf[0];
    int iKnown = 0;
    for (const bool bl : {netIf.blActive != 0, netIf.blStatic != 0, netIf.ulIP != 0, netIf.ulBroadCast != 0,
                          netIf.ulMask != 0, netIf.ulGateway != 0, gulDNS != INADDR_NONE})
        iKnown = 10 * iKnown + (bl ? 1 : 0);
    return n < 0 ? n : 10 * iKnown + n;
}
int Client() {
    const QIVEN_CONN conn{"10.0.0.9", QIVEN_PORT, 0, nullptr, &g_log};
    return QIVENUDPClient(&conn, &g_send);
}
int Listen() {
    const QIVEN_CONN conn{"127.0.0.1", QIVEN_PORT, 1, nullptr, &g_log};
    const QIVEN_RECV recv{};  // every callback may be null
    return QIVENUDPServer(&conn, &recv, nullptr, nullptr);
}
int Get2Hash() {
    const int n = TAVOQIVENGet2Hash(&g_pHash);
    TLIBCHashRemoveAll(g_pHash);
    return n;
}
int Invert() {
    const std::unique_ptr<MATRIX, decltype(&MatrixFree)> p(MatrixAlloc(8, 8), MatrixFree);
    return p == nullptr ? -9 : MatrixInversion(pmtr64, p.get());
}

const struct Operation {
    std::string name;
    std::function<void()> prepare;
    std::function<int()> work;
} kOperations[] = {
    {"make keys", [] {}, QIVENProcessKeyInit},
    {"use key", MakeKeys, UseKey},
    {"clean up", MakeKeys, QIVENProcessKeyCleanup},
    {"read sealed", MakeKeys, ReadSealed},
    {"read damaged", [] { MakeKeys(), g_sealed.pop_back(); }, ReadSealed},
    {"write sealed", MakeKeys, WriteSealed},
    {"add key", [] {}, [] { return QIVENAddKey("nas1", 1, "k"); }},
    {"make space", FillStore, [] { return QIVENAddKey("new", 1, "k"); }},
    {"get key", AddKey, [] { return QIVENGetKey("nas1", 1, g_szText); }},
    {"remove key", AddKey, [] { return QIVENRemoveKey("nas1", 1); }},
    {"interfaces", [] {}, Interfaces},
    {"dump", [] {}, [] { return QIVENIfaceDump(nullptr); }},
    {"client", MakeKeys, Client},
    {"listen", [] { Arrive(Answer(2, "nas1", "10.0.0.2", "")); }, Listen},
    {"search", [] { Arrive(Answer(2, "nas1", "10.0.0.2", "")); }, TAVOQIVENDumpHost},
    {"hash",
     [] { sandbox::WriteFile("/tmp/tavoqx.list.tmp", "7,300,nas1,10.0.0.1,\n7,300,nas2,10.0.0.2,\n"); },
     Get2Hash},
    {"invert", [] {}, Invert},
    {"encode", [] {}, [] { return MatrixEncode("ten bytes.", g_szText); }},
    {"decode", [] { MatrixEncode("ten bytes.", g_szEncoded); },
     [] { return MatrixDecode(g_szEncoded, g_szText); }},
};

const std::string kNoSocket = "1|iface:# Open socket error:({e})";
const std::string kNoResolv = "1|iface_lnx:# failed to open file /etc/resolv.conf error:({e})";
const std::string kFound = "1|udp:# QIVENIfaceInit number of interafce: 1\n";
const std::string kNone = "1|udp:# get physical interface error or no interface\n";
const std::string kReuse = "1|udp:# control setsockopt (SO_REUSEADDR)\n";
const std::string kBroadcast = "1|udp:# control setsockopt (SO_BROADCAST)\n";
const std::string kSendTo = "1|udp:# sendto error ret=[-1] {e} [{s}]\n";
const std::string kSkipped = "1|udp:# UDPSend error. interface: eth0\n";
const std::string kEmpty = Invalid("udp", "0 < cbPKTOutput");
const std::string kReadError = "2|udp:# recvfrom error! errno: {e} [{s}]\n";
const std::string kBind =
    "3|bind(sockfd=#, brdcast.sin_addr.s_addr = 16777226) error!! errno={e}, err_str=[{s}]";
const std::string kCard = "3|socket/socket_qiven_dump_host(#): ErrQIVENSendQueryPkt() failed!";

// Effects of failures that change the outcome: result, messages, leaked resources. {e} and {s} are the number
// and text of the error. Rows without call numbers apply to all calls.
const struct Expected {
    std::string operation, calls, numbers, outcome;
} kExpected[] = {
    {"read sealed", "mprotect", "", "0 2|packet:# No key to decrypt"},
    {"read damaged", "mprotect", "", "0 2|packet:# No key to decrypt"},
    {"write sealed", "memory", "",
     "0 1|packet:# Reallocate memory failed!\n1|packet:# FAILED to write plain packet\n"},
    {"add key", "memory", "", "0  HELD"},  // the store is kept, without the key
    {"interfaces", "socket", "1", "11111111 " + kNoSocket},
    {"interfaces", "socket", "2", "10 " + kNoSocket},
    {"interfaces", "socket", "3", "1000111 " + kNoSocket},
    {"interfaces", "ioctl", "1", "11111111 1|iface:# ioctl(SIOCGIFFLAGS) error:({e})"},
    {"interfaces", "ioctl", "2", "10 1|iface:# ioctl(SIOCGIFFLAGS) error:({e})"},
    {"interfaces", "ioctl", "3", "1000111 1|iface:# ioctl SIOCGIFHWADDR eth0 error:({e})"},
    {"interfaces", "ioctl", "4", "1000111 1|iface:# ioctl SIOCGIFADDR eth0 error:({e})"},
    {"interfaces", "ioctl", "5", "1100111 1|iface:# ioctl SIOCGIFBRDADDR eth0 error:({e})"},
    {"interfaces", "ioctl", "6", "1110111 1|iface:# ioctl SIOCGIFNETMASK eth0 error:({e})"},
    {"interfaces", "open fdopen fstat memory", "1", "11111101 " + kNoResolv},
    {"interfaces", "fopen fgets", "", "-1 "},
    {"interfaces", "memory", "", "11111101 "},
    {"interfaces", "memory", "", "11111011 "},
    {"interfaces", "open fdopen fstat", "3", "11111011 "},
    {"interfaces", "__getdelim", "", "11111101 "},  // getline, if the compiler inlines it
    {"interfaces", "__getdelim", "", "11111011 "},
    {"dump", "fopen fgets", "", "-1 "},
    {"client", "open fdopen fstat", "1", "0 " + kNoResolv + kFound},
    {"client", "memory", "", "0 " + kNoResolv + kFound},
    {"client", "fopen fgets", "", "-1 " + kNone},
    {"client", "socket", "1", "0 " + kNoSocket + kFound},
    {"client", "socket", "2", "-1 " + kNoSocket + kNone},
    {"client", "socket", "3", "0 " + kNoSocket + kFound + kEmpty},
    {"client", "socket", "4", "0 " + kFound + "1|udp:# create socket error.\n" + kSkipped},
    {"client", "socket", "5", "0 " + kFound + "1|udp:# create socket error.\n"},
    {"client", "setsockopt", "1 3", "0 " + kFound + kReuse},
    {"client", "setsockopt", "2 4", "0 " + kFound + kBroadcast},
    {"client", "bind", "",
     "0 " + kFound + "1|udp:# bind(sockfd=#, brdcast.sin_addr.s_addr = 16777226) error!! error: {e} [{s}]\n" +
         kSkipped},
    {"client", "sendto", "1", "0 " + kFound + kSendTo + kSkipped},
    {"client", "sendto", "2", "0 " + kFound + kSendTo},
    {"client", "ioctl", "1", "0 1|iface:# ioctl(SIOCGIFFLAGS) error:({e})" + kFound},
    {"client", "ioctl", "2", "-1 1|iface:# ioctl(SIOCGIFFLAGS) error:({e})" + kNone},
    {"client", "ioctl", "3", "0 1|iface:# ioctl SIOCGIFHWADDR eth0 error:({e})" + kFound + kEmpty},
    {"client", "ioctl", "4", "0 1|iface:# ioctl SIOCGIFADDR eth0 error:({e})" + kFound + kEmpty},
    {"client", "ioctl", "5", "0 1|iface:# ioctl SIOCGIFBRDADDR eth0 error:({e})" + kFound + kEmpty},
    {"client", "ioctl", "6", "0 1|iface:# ioctl SIOCGIFNETMASK eth0 error:({e})" + kFound + kEmpty},
    {"listen", "socket", "", "-1 1|udp:# create socket error.\n"},
    {"listen", "setsockopt", "1", "0 " + kReuse},
    {"listen", "setsockopt", "2", "0 1|udp:# set sock opt error: {s}\n"},
    {"listen", "bind", "",
     "-1 1|udp:# bind(sockfd=#, servaddr.sin_addr.s_addr = 16777343) error!! errno: {e} [{s}]\n"},
    {"listen", "recvfrom", "", "0 " + kReadError},
    {"search", "if_nameindex", "", "-1 " + kCard},
    {"search", "mprotect", "", "0  HELD"},
    {"search", "socket", "2 5", "-1 3|create socket error." + kCard},
    {"search", "socket", "7", "-1 3|Fail to search!\n"},
    {"search", "socket", "", "-1 " + kCard},
    {"search", "ioctl", "2 5", "-1 " + kCard},
    {"search", "setsockopt", "1 2", "-1 3|set socket option error." + kCard},
    {"search", "bind", "1 2", "-1 " + kBind + kCard},
    {"search", "bind", "3", "-1 3|Fail to search!\n"},
    {"search", "sendto", "", "-1 3|sendto error." + kCard},
    {"search", "open", "1", "-1 3|socket/socket_qiven_dump_host(#): Touch /tmp/tavoqx.list failed"},
    {"search", "open", "2",
     "0 3|open(/tmp/tavoqx.list, O_APPEND | O_SYNC | O_RDWR, S_IRWXU | S_IRWXG | S_IRWXO) failed! "
     "error_code[{e}]=[{s}]\n"},
    {"search", "write", "",
     "0 3|socket/socket_qiven_dump_host: addNasinfoToList(#) - write(#, 7,300,nas1,10.0.0.2,\n, 21) {s}\n"},
    {"search", "rename", "", "0 3|socket/socket_qiven_dump_host(#): rename file failed! [{s}]"},
    {"hash", "memory open fdopen", "1", "0 "},  // cannot be opened
    {"hash", "memory", "", "1 "},               // a line is lost
    {"hash", "memory", "", "1 3|socket/socket_qiven_get2hash:# field number < 5"},
    {"hash", "fstat", "", "-1 "},
};

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
    for (const Expected &row : kExpected) {
        if (IsQuiet(operation, failure) || row.operation != operation.name ||
            !HasWord(row.calls, failure.call))
            continue;
        const bool blNumber = row.numbers.empty() || HasWord(row.numbers, std::to_string(failure.n));
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
    ASSERT_FALSE(calls.empty());
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
