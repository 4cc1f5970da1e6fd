// The discovery port on simulated segments: origin and destination of datagrams, and losses.
#include <qiven/keys.h>
#include <fcntl.h>
#include <sodium.h>
#include <sys/wait.h>

#include <atomic>
#include <optional>
#include <thread>

#include "support/capture.h"
#include "support/failing_calls.h"
#include "support/packets.h"
#include "watch/cable.h"

namespace {

struct Endpoint {
    QIVEN_ENDPOINT *p = nullptr;
    explicit Endpoint(uint32_t ulFlags = 0, uint32_t ulTypes = 0) {
        const QIVEN_ENDPOINT_CONF conf{sizeof conf, ulFlags, ulTypes, NotFarEnds, nullptr};
        EXPECT_EQ(0, QIVENEndpointOpen(&p, &conf));
    }
    ~Endpoint() { QIVENEndpointClose(p); }
    Endpoint(const Endpoint &) = delete;
    Endpoint &operator=(const Endpoint &) = delete;

    QIVEN_COUNTS Counts() const {
        return CountsBy([this](QIVEN_COUNTS *pCounts) { return QIVENEndpointCounts(p, pCounts); });
    }
    // Takes datagrams until so many have been received or lost, however long they take on a busy machine, and
    // those that arrive within a time after that.
    template <class Function>
    void TakeAll(uint64_t nTotal, int ms, Function function) const {
        constexpr int kLongest = 20'000;
        const auto IsMissing = [&] {
            const QIVEN_COUNTS counts = Counts();
            return counts.ullReceived + counts.ullLost < nTotal;
        };
        bool blMissing = true;
        do {
            while (const QIVEN_RECEIVED *pReceived = QIVENEndpointReceive(p))
                function(*pReceived);
            blMissing = IsMissing();
        } while (WaitReadable(QIVENEndpointFd(p), blMissing ? kLongest : ms));
    }
    int Send(QIVEN_SEND &send, uint32_t ulFlags, const std::string &interface,
             const char *szKey = nullptr) const {
        const QIVEN_TO to{sizeof to, ulFlags, interface.empty() ? 0 : if_nametoindex(interface.c_str()), 77,
                          szKey};
        return QIVENEndpointSend(p, &send, &to);
    }
};

std::string Sealed(const std::string &packet, const unsigned char *pKey) {
    std::string sealed(packet.size() + crypto_box_SEALBYTES, '\0');
    crypto_box_seal(reinterpret_cast<unsigned char *>(sealed.data()),
                    reinterpret_cast<const unsigned char *>(packet.data()), packet.size(), pKey);
    return std::string(reinterpret_cast<const char *>(stQIVENHeaderEncrypted), 8) + sealed;
}

std::string FlagNames(uint32_t ulFlags) {
    static constexpr const char *kNames[] = {"sealed",   "own", "local", "off-link",
                                             "directed", "key", "unused"};
    std::string text;
    for (unsigned i = 0; i < std::size(kNames); ++i)
        text += (ulFlags >> i & 1U) != 0 ? std::string(" ") + kNames[i] : "";
    return text;
}

TEST(Endpoint, SaysWhereADatagramCameFrom) {
    EnterMachine();
    const Cable lan0("lan0", "10.9.0.1/24");
    const Cable lan1("lan1", "10.8.0.1/24");
    const Cable bare("bare0", "");
    const Endpoint endpoint(QIVEN_ENDPOINT_REFUSED);
    unsigned char rgbOther[crypto_box_PUBLICKEYBYTES] = {9};
    const std::string answer = Answer(2, "nas", "10.9.0.7", "id");
    const std::string query = Basic(1) + Field(0xC4, std::string(64, 'a')) + Number(0xC5, 7);
    const std::string own = Basic(1) + Number(0xC5, QIVENProcessGetID());
    const struct {
        const Cable &cable;
        std::string payload, from, to;
        bool blBroadcastFrame;
        const char *szExpected;
    } rows[] = {
        {lan0, answer, "10.9.0.7", "255.255.255.255", true, "lan0 10.9.0.7 nas"},
        {lan1, answer, "10.8.0.7", "255.255.255.255", true, "lan1 10.8.0.7 nas"},
        {lan0, answer, "10.9.0.7", "10.9.0.255", true, "lan0 10.9.0.7 nas"},
        {lan0, answer, "10.9.0.7", "255.255.255.255", false, "lan0 10.9.0.7 nas"},
        {lan0, answer, "10.9.0.7", "10.9.0.255", false, "lan0 10.9.0.7 nas"},
        {lan0, answer, "10.9.0.7", "10.9.0.1", false, "lan0 10.9.0.7 nas directed"},
        {lan0, answer, "10.8.0.7", "255.255.255.255", true, "lan0 10.8.0.7 nas off-link"},
        {bare, answer, "10.7.0.7", "255.255.255.255", true, "bare0 10.7.0.7 nas off-link unused"},
        {lan0, query, "10.9.0.7", "255.255.255.255", true, "lan0 10.9.0.7  key"},
        {lan0, own, "10.9.0.7", "255.255.255.255", true, ""},
        {lan0, Sealed(answer, QIVENProcessPublicKeyGet()), "10.9.0.7", "255.255.255.255", true,
         "lan0 10.9.0.7 nas sealed"},
        {lan0, Sealed(answer, rgbOther), "10.9.0.7", "255.255.255.255", true, "lan0 10.9.0.7 ?"},
        {lan0, "junk", "10.9.0.7", "255.255.255.255", true, "lan0 10.9.0.7 ?"},
        {lan0, "", "10.9.0.7", "255.255.255.255", true, "lan0 10.9.0.7 ?"},
    };
    uint64_t nSent = 0;
    for (const auto &row : rows) {
        row.cable.Send(row.payload, row.from, row.to, row.blBroadcastFrame);
        std::string seen;
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        endpoint.TakeAll(++nSent, 10, [&](const QIVEN_RECEIVED &received) {
            const char *szName = received.pnasInfo != nullptr ? received.pnasInfo->szHostName : "?";
            seen += std::string(received.szIfName) + " " + inet_ntoa({received.ulSource}) + " " + szName +
                    FlagNames(received.ulFlags);
            EXPECT_EQ(5000, received.usPort);
            EXPECT_EQ(row.payload,
                      std::string(reinterpret_cast<const char *>(received.pbDatagram), received.cbDatagram));
            EXPECT_NEAR(static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3,
                        static_cast<double>(received.ullMonotonicUs), 2e7);
            EXPECT_NEAR(static_cast<double>(time(nullptr)) * 1e6, static_cast<double>(received.llUnixUs),
                        2e7);
        });
        EXPECT_EQ(row.szExpected, seen) << row.cable.name << " " << row.from << " to " << row.to;
    }
    // Longer than a packet can be.
    SendTo(Basic(2) + std::string(9000, '\0'));
    endpoint.TakeAll(nSent + 1, 10,
                     [](const QIVEN_RECEIVED &received) { EXPECT_EQ(nullptr, received.pnasInfo); });
    const QIVEN_COUNTS counts = endpoint.Counts();
    EXPECT_EQ(std::size(rows) + 1, counts.ullReceived);
    EXPECT_EQ(3U, counts.ullRefused);
    EXPECT_EQ(1U, counts.ullSealedForOthers);
    EXPECT_EQ(1U, counts.ullOwn);
    EXPECT_EQ(0U, counts.ullLost);
    EXPECT_EQ(8U, counts.nSockets);
}

TEST(Endpoint, GivesOutTheTypesAskedFor) {
    EnterMachine();
    const Cable lan0("lan0", "10.9.0.1/24");
    const Endpoint endpoint(QIVEN_ENDPOINT_PLAIN | QIVEN_ENDPOINT_OWN, 1U << QIVEN_PKT_QUERY);
    for (const uint32_t ulType : {1U, 2U, 6U, 31U, 32U, 33U, UINT32_MAX})
        lan0.Send(Basic(ulType), "10.9.0.7");
    std::string seen;
    const auto Take = [&](uint64_t nTotal) {
        endpoint.TakeAll(nTotal, 10, [&](const QIVEN_RECEIVED &received) {
            seen += std::to_string(received.pnasInfo->ulPktType) + FlagNames(received.ulFlags) + ";";
        });
    };
    Take(7);
    // Without keys, an identical query from this machine counts as our own.
    nasinfo record{};
    record.ulPktType = QIVEN_PKT_QUERY;
    QIVEN_SEND send{&record, 2, {0x01, 0xA4}};
    EXPECT_EQ(1, endpoint.Send(send, 0, ""));
    Take(8);
    EXPECT_EQ("1;1 own local;", seen);
    EXPECT_EQ(6U, endpoint.Counts().ullOtherType);
    // One that is shut has keys, but does not open what is sealed to it.
    const Endpoint shut(QIVEN_ENDPOINT_SHUT);
    lan0.Send(Sealed(Basic(2), QIVENProcessPublicKeyGet()), "10.9.0.7");
    lan0.Send(Basic(2), "10.9.0.7");
    seen.clear();
    shut.TakeAll(2, 10,
                 [&seen](const QIVEN_RECEIVED &received) { seen += FlagNames(received.ulFlags) + ";"; });
    EXPECT_EQ(";", seen);
    EXPECT_EQ(1U, shut.Counts().ullSealedForOthers);
}

nasinfo Open(const Datagram &datagram) {
    nasinfo record{};
    const auto *pb = reinterpret_cast<const unsigned char *>(datagram.payload.data());
    EXPECT_GT(QIVENPacketReadEncrypted(nullptr, pb, static_cast<int>(datagram.payload.size()), &record), 0);
    return record;
}

// Two interfaces share a network, the third has a separate one.
TEST(Endpoint, SendsWhereItIsTold) {
    EnterMachine();
    const Cable lan0("lan0", "10.9.0.1/24");
    const Cable lan1("lan1", "10.9.0.2/24");
    const Cable lan2("lan2", "10.8.0.1/24");
    const Endpoint endpoint;
    char szKey[QIVEN_KEY_HEX_SIZE];
    sodium_bin2hex(szKey, sizeof szKey, QIVENProcessPublicKeyGet(), QIVEN_KEY_SIZE);
    nasinfo record{};
    QIVEN_SEND send{&record, 2, {0x01, 0xA4}};
    const struct {
        uint32_t ulType, ulFlags;
        const char *szInterface, *szKey;
        int iResult;
        std::vector<std::string> by;  // interface and address in the packet
    } rows[] = {
        {2, 0, "", nullptr, 3, {"lan0 0.0.0.0", "lan1 0.0.0.0", "lan2 0.0.0.0"}},
        {2, QIVEN_TO_ADDRESS, "lan1", nullptr, 1, {"lan1 10.9.0.2"}},
        {2, QIVEN_TO_ADDRESS | QIVEN_TO_SEGMENT, "lan0", nullptr, 2, {"lan0 10.9.0.1", "lan1 10.9.0.2"}},
        {2, QIVEN_TO_SEGMENT, "lan2", szKey, 1, {"lan2 0.0.0.0 sealed 77"}},
        {1, 0, "lan2", nullptr, 1, {"lan2 0.0.0.0 key"}},
        {2, 0, "w-lan0", nullptr, -ENODEV, {}},
        {2, 0, "lan0", "not a key", -EINVAL, {}},
    };
    const std::string names[] = {"lan0", "lan1", "lan2"};
    for (const auto &row : rows) {
        std::vector<std::unique_ptr<Capture>> captures;
        for (const std::string &name : names)
            captures.push_back(std::make_unique<Capture>("w-" + name));
        record.ulPktType = row.ulType;
        EXPECT_EQ(row.iResult, endpoint.Send(send, row.ulFlags, row.szInterface, row.szKey));
        std::vector<std::string> by;
        for (size_t i = 0; i < captures.size(); ++i) {
            for (const Datagram &datagram : captures[i]->Take()) {
                const nasinfo sent = Open(datagram);
                std::string mac = sandbox::ReadFile("/sys/class/net/" + names[i] + "/address");
                mac.pop_back();
                EXPECT_EQ(mac, sent.szMacAddr);
                EXPECT_EQ(i == 0 ? "10.9.0.1" : i == 1 ? "10.9.0.2" : "10.8.0.1", datagram.address);
                EXPECT_EQ("255.255.255.255:9999", datagram.to);
                EXPECT_EQ(QIVEN_SOURCE_PORT, datagram.iPort);
                by.push_back(names[i] + " " + inet_ntoa({sent.ulIP}));
                const bool blSealed = datagram.payload[2] != '\x56';
                if (blSealed) by.back() += " sealed " + std::to_string(sent.ulPeerProcessID);
                if (!blSealed && sent.ulProcessID == QIVENProcessGetID() &&
                    szKey == std::string(sent.szPubKeyHex))
                    by.back() += " key";
            }
        }
        EXPECT_EQ(row.by, by);
    }
    EXPECT_EQ(2, send.nPktID);
    EXPECT_STREQ("", record.szMacAddr);
    // A failed interface reports the reason, and the others are still used.
    FailingCallsArm("sendmsg", 2, EPERM);
    EXPECT_EQ(2, endpoint.Send(send, 0, ""));
    std::string states;
    for (const QIVEN_INTERFACE *p = nullptr;
         (p = QIVENEndpointInterface(endpoint.p, p != nullptr ? p->ulIfIndex : 0)) != nullptr;)
        states += std::string(p->szIfName) + "=" + std::to_string(p->ulState) + "," +
                  std::to_string(p->iResult) + " ";
    EXPECT_NE(std::string::npos, states.find("lo=5,0 "));
    EXPECT_NE(std::string::npos, states.find("lan0=0,0 "));
    EXPECT_NE(std::string::npos, states.find("lan1=1,-1 "));
    EXPECT_NE(std::string::npos, states.find("w-lan1=6,0 "));
}

// Bursts that exceed the buffers while nothing is read: received and lost datagrams add up in each case.
TEST(Endpoint, CountsWhatIsLostExactly) {
    EnterMachine();
    const Cable lan0("lan0", "10.9.0.1/24");
    const Endpoint endpoint;
    uint64_t ullSent = 0;
    const auto Burst = [&](unsigned n, const char *szTo, bool blFrame) {
        for (unsigned i = 0; i < n; ++i)
            lan0.Send(Basic(2) + Number(0x48, i), "10.9.0." + std::to_string(i % 250 + 3), szTo, blFrame);
        ullSent += n;
    };
    uint64_t ullGiven = 0;
    const auto Balance = [&](const char *szWhat, std::optional<bool> losses) {
        const uint64_t ullBefore = endpoint.Counts().ullLost;
        endpoint.TakeAll(ullSent, 100, [&](const QIVEN_RECEIVED &) { ++ullGiven; });
        const QIVEN_COUNTS counts = endpoint.Counts();
        EXPECT_EQ(ullSent, counts.ullReceived + counts.ullLost) << szWhat;
        EXPECT_EQ(ullGiven, counts.ullReceived) << szWhat;
        EXPECT_EQ(losses.value_or(counts.ullLost > ullBefore), counts.ullLost > ullBefore) << szWhat;
    };
    Burst(3000, "255.255.255.255", true);
    Balance("eight buffers hold more than one does", false);
    Burst(20'000, "255.255.255.255", true);
    Balance("broadcasts", true);
    Burst(3000, "10.9.0.1", false);
    Balance("for this machine alone", true);
    Burst(3000, "255.255.255.255", false);
    Balance("broadcasts in frames for this machine", false);
    Burst(3000, "10.9.0.255", false);
    Balance("broadcasts in frames for this machine, which no filter knows", true);
    // A storm with occasional reads.
    std::thread storm([&] { Burst(60'000, "255.255.255.255", true); });
    for (int i = 0; i < 50; ++i) {
        usleep(3000);
        for (int n = 0; n < 100 && QIVENEndpointReceive(endpoint.p) != nullptr; ++n)
            ++ullGiven;
    }
    storm.join();
    Balance("a storm", {});
    // Counted while datagrams come in, nothing may be taken for lost that is only on its way.
    std::atomic<bool> blOver = false;
    std::thread stream([&] {
        Burst(40'000, "255.255.255.255", true);
        blOver = true;
    });
    while (!blOver) {
        while (QIVENEndpointReceive(endpoint.p) != nullptr)
            ++ullGiven;
    }
    stream.join();
    Balance("a stream", {});
}

TEST(Endpoint, RefusesWhatItCannotDo) {
    EnterMachine();
    QIVEN_ENDPOINT *p = nullptr;
    QIVEN_SEND send{};
    QIVEN_COUNTS counts{};
    EXPECT_EQ(-EINVAL, QIVENEndpointOpen(nullptr, nullptr));
    EXPECT_EQ(-EINVAL, QIVENEndpointFd(nullptr));
    EXPECT_EQ(nullptr, QIVENEndpointReceive(nullptr));
    EXPECT_EQ(-EINVAL, QIVENEndpointSend(nullptr, &send, nullptr));
    EXPECT_EQ(nullptr, QIVENEndpointInterface(nullptr, 0));
    EXPECT_EQ(-EINVAL, QIVENEndpointCounts(nullptr, &counts));
    QIVENEndpointClose(nullptr);
    {
        const Endpoint endpoint;
        EXPECT_EQ(-EINVAL, QIVENEndpointSend(endpoint.p, nullptr, nullptr));
        EXPECT_EQ(-EINVAL, QIVENEndpointSend(endpoint.p, &send, nullptr));
        EXPECT_EQ(-EINVAL, QIVENEndpointCounts(endpoint.p, nullptr));
        EXPECT_EQ(FD_CLOEXEC, fcntl(QIVENEndpointFd(endpoint.p), F_GETFD));
        // A program built with a smaller record gets only the counts that fit.
        counts.cbSize = offsetof(QIVEN_COUNTS, ullReceived);
        counts.ullReceived = 99;
        EXPECT_EQ(0, QIVENEndpointCounts(endpoint.p, &counts));
        EXPECT_EQ(8U, counts.nSockets);
        EXPECT_EQ(99U, counts.ullReceived);
        // A forked child may only close the handle, which does not affect the parent.
        const pid_t pid = fork();
        if (pid == 0) {
            const bool blRefused = QIVENEndpointReceive(endpoint.p) == nullptr &&
                                   QIVENEndpointCounts(endpoint.p, &counts) == -EINVAL;
            QIVENEndpointClose(endpoint.p);
            _exit(blRefused && QIVENProcessKeyInited() == 1 ? 0 : 1);
        }
        int iStatus = -1;
        waitpid(pid, &iStatus, 0);
        EXPECT_EQ(0, iStatus);
        SendTo(Basic(2));
        int nSeen = 0;
        endpoint.TakeAll(1, 50, [&nSeen](const QIVEN_RECEIVED &) { ++nSeen; });
        EXPECT_EQ(1, nSeen);
    }
    EXPECT_EQ(0, QIVENProcessKeyInited());
    // Another socket uses the port exclusively.
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(QIVEN_PORT);
    ASSERT_EQ(0, bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local));
    EXPECT_EQ(-EADDRINUSE, QIVENEndpointOpen(&p, nullptr));
    EXPECT_EQ(nullptr, p);
    EXPECT_STREQ("UDP port 9999 is held by a program that does not share it", QIVENWatchError(-EADDRINUSE));
    EXPECT_STREQ("success", QIVENWatchError(0));
    EXPECT_STREQ("Network is unreachable", QIVENWatchError(-ENETUNREACH));
    EXPECT_STREQ("an unknown error", QIVENWatchError(-123456));
    close(fd);
}

}  // namespace
