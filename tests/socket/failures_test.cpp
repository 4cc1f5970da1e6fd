// Sending, listening and searching when the system says no: what is reported, what is returned, and that
// nothing stays open.
#include <qiven/keys.h>
#include <qiven/search.h>
#include <qiven/udp.h>
#include <tavocore.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "socket/dump_host.h"
#include "support/interpose.h"
#include "support/log_capture.h"
#include "support/packets.h"
#include "support/sandbox.h"

namespace {

using Lines = std::vector<std::string>;

LogCapture *g_log;

ptrdiff_t CountDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

std::string TakeMessages() {
    std::string text;
    for (const Lines &lines : {LogCapture::Take(), interpose::TakeSyslog()})
        for (const std::string &line : lines)
            text += interpose::HideNumbers(line);
    return text;
}

int Send(uint32_t ulIP = 0x0100007F, const char *szTo = "127.0.0.1") {
    QIVEN_CONN conn{{}, QIVEN_PORT, 0, nullptr, nullptr};
    memcpy(conn.szAddr, szTo, strnlen(szTo, sizeof conn.szAddr));
    QIVEN_NETIF netIf{};
    netIf.szIfName[0] = 'e';
    netIf.ulIP = ulIP;
    return QIVENUDPSend(g_log->Record(), reinterpret_cast<const unsigned char *>("abc"), 3, &conn, &netIf, 1);
}

int Client(int nFields) {
    QIVENProcessKeyInit();
    nasinfo record{};
    record.ulPktType = QIVEN_PKT_QUERY;
    QIVEN_SEND send{&record, nFields, {0x01, 0xA4, 0x02}};
    const QIVEN_CONN conn{"10.0.0.9", QIVEN_PORT, 0, nullptr, g_log->Record()};
    const int iResult = QIVENUDPClient(&conn, &send);
    QIVENProcessKeyCleanup();
    return iResult;
}

int Listen(const char *szAddr = "127.0.0.1") {
    interpose::clock = {true, 0, 0, 0, 0, [] {
                            if (interpose::clock.nWaits == 1) SendTo("junk");
                        }};
    QIVEN_CONN conn{{}, QIVEN_PORT, 1, nullptr, g_log->Record()};
    memcpy(conn.szAddr, szAddr, strnlen(szAddr, sizeof conn.szAddr));
    const QIVEN_RECV recv{};
    return QIVENUDPServer(&conn, &recv, nullptr, nullptr);
}

int Search() {
    interpose::clock = {true, 0, 0, 0, 0, nullptr};
    testing::internal::CaptureStderr();
    const int iResult = TAVOQIVENDumpHost();
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(text.empty() || text.ends_with("Server run error!")) << text;
    EXPECT_EQ(nullptr, gpLog);
    EXPECT_EQ(0, QIVENProcessKeyInited());
    return iResult;
}

int SearchWithoutList() {
    std::filesystem::create_symlink("nowhere", "/tmp/tavoqx.list");
    return Search();
}

int Broadcast() {
    const uint32_t ulAddr = 0x0100000A;
    return BroadcastUdpByInterface("abc", 3, &ulAddr);
}

int ListHost() {
    sandbox::WriteFile("/tmp/tavoqx.list", "");
    nasinfo record{};
    record.ulPktType = QIVEN_PKT_ANSWER;
    record.ulIP = 0x0100000A;
    record.szHostName[0] = 'n';
    return qiven::socket::addNasinfoToList(&record);
}

int ReadList() {
    sandbox::WriteFile("/tmp/tavoqx.list.tmp", "7,300,nas1,10.0.0.1,\n7,300,nas2,10.0.0.2,\n");
    TLIBC_SZHASH_HANDLE pHash = TLIBCSzHashAlloc(8);
    const int iResult = TAVOQIVENGet2Hash(&pHash);
    TLIBCSzHashFree(pHash);
    return iResult == -1 && std::filesystem::exists("/tmp/tavoqx.list.tmp") ? -2 : iResult;
}

TEST(Failures, AreReportedAndLeaveNothingOpen) {
    sandbox::Enter();
    sandbox::PrivateDir("/etc");
    sandbox::PrivateDir("/tmp");
    sandbox::WriteFile("/etc/resolv.conf", "");
    sandbox::AddEthernet("eth0", "02:00:00:00:00:01", "10.0.0.1/24 brd +");
    LogCapture log;
    g_log = &log;
    const std::string bound =
        "1|udp:# bind(sockfd=#, brdcast.sin_addr.s_addr = 16777343) error!! error: 98 "
        "[Address already in use]\n";
    const std::string listener =
        "1|udp:# bind(sockfd=#, servaddr.sin_addr.s_addr = 16777343) error!! errno: 13 "
        "[Permission denied]\n";
    const std::string untranslated = "1|udp:# fail to translate IP addr\n";
    const std::string junk = "1|udp:# PacketRead Error! ret=[0]\n";
    const std::string found = "1|udp:# QIVENIfaceInit number of interafce: 1\n";
    const std::string card = "3|socket/socket_qiven_dump_host(#): ErrQIVENSendQueryPkt() failed!";
    const std::string hash = "3|socket/socket_qiven_get2hash:# ";
    const auto send = [] { return Send(); };
    const auto client = [] { return Client(2); };
    const auto listen = [] { return Listen(); };
    const struct {
        const char *szCall;  // the one that fails, after nBefore that do not
        int nBefore, iErrno;
        std::function<int()> work;
        int iResult;
        std::string messages;
    } cases[] = {
        {"", 0, 0, send, 3, ""},
        {"QIVENSocketInit", 0, 0, send, -1, "1|udp:# Init socket error.\n"},
        {"socket", 0, EMFILE, send, -1, "1|udp:# create socket error.\n"},
        {"setsockopt", 0, EPERM, send, 3, "1|udp:# control setsockopt (SO_REUSEADDR)\n"},
        {"setsockopt", 1, EPERM, send, 3, "1|udp:# control setsockopt (SO_BROADCAST)\n"},
        {"bind", 0, EADDRINUSE, send, -1, bound},
        {"sendto", 0, ENETUNREACH, send, -1, "1|udp:# sendto error ret=[-1] 101 [Network is unreachable]\n"},

        {"", 0, 0, [] { return Send(0, "nonsense"); }, -1, "1|udp:# fail to init Iface [e] src addr [0]\n"},
        {"", 0, 0, [] { return Send(1, "127.0.0.1 and no end"); }, -1, untranslated},
        {"", 0, 0, [] { return Listen("256.0.0.1"); }, -1, untranslated},
        {"", 0, 0, [] { return Client(0); }, -1, Invalid("udp", "0 < pqivenSend->nPktID")},
        {"", 0, 0, [] { return QIVENUDPSend(g_log->Record(), nullptr, 0, nullptr, nullptr, 0); }, 0,
         Invalid("udp", "((void *)0) != szPKTOutput")},
        {"", 0, 0, [] { return QIVENUDPSend(g_log->Record(), stQIVENHeader, 0, nullptr, nullptr, 0); }, 0,
         Invalid("udp", "0 < cbPKTOutput")},
        {"", 0, 0, [] { return QIVENUDPSend(g_log->Record(), stQIVENHeader, 1, nullptr, nullptr, 0); }, 0,
         Invalid("udp", "((void *)0) != pqivenConn")},

        {"calloc", 0, ENOMEM, client, -1, ""},
        {"", 0, 0, [] { return Client(3); }, -1,
         found + "1|packet:# unknown PKT-ID: [0x2]\n1|packet:# fail to write [0x2]!\n1|udp:# fail to create "
                 "output-packet content.\n"},
        {"sendto", 0, EPERM, client, 0,
         found + "1|udp:# sendto error ret=[-1] 1 [Operation not permitted]\n1|udp:# UDPSend error. "
                 "interface: eth0\n"},
        {"QIVENProcessPublicKeyGet", 0, 0, client, -1, found + "1|udp:# failed to add enc elements.\n"},

        {"", 0, 0, listen, 0, junk},
        {"QIVENSocketInit", 0, 0, listen, -1, "1|udp:# Init socket error.\n"},
        {"socket", 0, EMFILE, listen, -1, "1|udp:# create socket error.\n"},
        {"setsockopt", 0, EPERM, listen, 0, "1|udp:# control setsockopt (SO_REUSEADDR)\n" + junk},
        {"setsockopt", 1, EPERM, listen, 0, "1|udp:# set sock opt error: Operation not permitted\n" + junk},
        {"bind", 0, EACCES, listen, -1, listener},
        {"poll", 0, EINTR, listen, 0, junk},
        {"recvfrom", 0, ECONNREFUSED, listen, 0,
         "2|udp:# recvfrom error! errno: 111 [Connection refused]\n" + junk},

        {"socket", 0, EMFILE, Broadcast, -1, "3|create socket error."},
        {"bind", 0, EACCES, Broadcast, -1,
         "3|bind(sockfd=#, brdcast.sin_addr.s_addr = 16777226) error!! errno=13, err_str=[Permission "
         "denied]"},
        {"sendto", 0, EPERM, Broadcast, -1, "3|sendto error."},

        {"", 0, 0, SearchWithoutList, -1,
         "3|socket/socket_qiven_dump_host(#): Touch /tmp/tavoqx.list failed"},
        {"QIVENProcessKeyInit", 0, 0, Search, -1, "3|Failed to initialize key for encrypted communication\n"},
        {"sendto", 0, EPERM, Search, -1, "3|sendto error." + card},
        {"bind", 2, EADDRINUSE, Search, -1, "3|Fail to search!\n"},
        {"rename", 0, EXDEV, Search, 0,
         "3|socket/socket_qiven_dump_host(#): rename file failed! [Invalid cross-device link]"},

        {"open", 0, EACCES, ListHost, 0,
         "3|open(/tmp/tavoqx.list, O_APPEND | O_SYNC | O_RDWR, S_IRWXU | S_IRWXG | S_IRWXO) failed! "
         "error_code[13]=[Permission denied]\n"},
        {"write", 0, ENOSPC, ListHost, 0,
         "3|socket/socket_qiven_dump_host: addNasinfoToList(#) - write(#, 0,0,n,10.0.0.1,\n, 16) No space "
         "left on device\n"},

        {"TLIBCSzListAlloc", 0, 0, ReadList, -1, ""},
        {"TLIBCStrTrimSpace", 0, 0, ReadList, 1, hash + "TLIBCStrTrimSpace error!!"},
        {"getdelim", 1, ENOMEM, ReadList, -1, ""},
        {"open", 0, EACCES, ReadList, 0, ""},
        {"fdopen", 0, ENOMEM, ReadList, 0, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.szCall) + " after " + std::to_string(c.nBefore));
        std::filesystem::remove("/tmp/tavoqx.list");
        const auto nBefore = CountDescriptors();
        interpose::Fail(c.szCall, c.nBefore, c.iErrno);
        EXPECT_EQ(c.iResult, c.work());
        EXPECT_FALSE(interpose::IsPending());
        EXPECT_EQ(c.messages, TakeMessages());
        EXPECT_EQ(nBefore, CountDescriptors());
    }
    sandbox::Run("ip link set eth0 down");
    EXPECT_EQ(-1, Client(2));
    EXPECT_EQ("1|udp:# get physical interface error or no interface\n", TakeMessages());
}

}  // namespace
