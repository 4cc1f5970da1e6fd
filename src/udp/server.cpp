// The receive loop.
#include <qiven/udp.h>

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "base/descriptor.h"
#include "base/message.h"
#include "udp/address.h"

using qiven::base::Check;
using qiven::base::Debug;
using qiven::base::Descriptor;
using qiven::base::Error;
using namespace qiven::udp;

namespace {

constexpr int kReceiveBufferSize = 65536;
constexpr int kWaitMilliseconds = 2000;

// The state of one call.
struct ReceiveLoop {
    const QIVEN_CONN &conn;
    const QIVEN_RECV &recv;
    const QIVEN_CONN *pConnSend;
    QIVEN_SEND *pSend;
    int fd;
    time_t start;
    time_t nextQuery = 0;  // seconds after the start
    bool blQuerySent = false;
    bool blReadFailed = false;  // the last read failed, although not for lack of a datagram
    nasinfo record{};
    unsigned char rgbDatagram[QIVEN_PACKET_MAX]{};

    int Elapsed() const { return static_cast<int>(time(nullptr) - start); }
};

// Prepares the socket and binds it. False, with a message, if it cannot be bound.
bool SetUp(const QIVEN_CONN &conn, int fd) {
    if (!EnableOption(fd, SO_REUSEADDR)) Error(conn.pLog, kModule, "control setsockopt (SO_REUSEADDR)\n");
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBufferSize, sizeof kReceiveBufferSize) != 0) {
        Error(conn.pLog, kModule, "set sock opt error: %s\n", strerror(errno));
    }
    sockaddr_in local;
    if (!ToAddress(conn, local)) {
        Error(conn.pLog, kModule, "fail to translate IP addr\n");
        return false;
    }
    if (bind(fd, Generic(local), sizeof local) != 0) {
        Error(conn.pLog, kModule, "bind(sockfd=%d, servaddr.sin_addr.s_addr = %lu) error!! errno: %d [%s]\n",
              fd, static_cast<unsigned long>(local.sin_addr.s_addr), errno, strerror(errno));
        return false;
    }
    return true;
}

bool IsQueryDue(const ReceiveLoop &loop) {
    if (loop.pConnSend->iTimeout > 0) return loop.Elapsed() > loop.nextQuery;
    return loop.pConnSend->iTimeout == -1 && !loop.blQuerySent;
}

// Sends the query if it is due. False if it could not be sent.
bool SendDueQuery(ReceiveLoop &loop) {
    if (loop.pConnSend == nullptr || !IsQueryDue(loop)) return true;
    if (QIVENUDPClient(loop.pConnSend, loop.pSend) == -1) {
        Error(loop.conn.pLog, kModule, "broadcast query packet error!\n");
        return false;
    }
    loop.blQuerySent = true;
    loop.nextQuery += loop.pConnSend->iTimeout;
    return true;
}

bool WaitReadable(int fd) {
    pollfd readable{fd, POLLIN, 0};
    return poll(&readable, 1, kWaitMilliseconds) > 0;
}

ssize_t Read(ReceiveLoop &loop) {
    return recvfrom(loop.fd, loop.rgbDatagram, sizeof loop.rgbDatagram, MSG_DONTWAIT, nullptr, nullptr);
}

// Reads one datagram into the buffer. The read is tried before the wait, so that a queued datagram costs one
// system call. After a failed read the wait comes first, until a read succeeds: otherwise a kernel that
// refuses every read would make a pass of the loop last no time at all. Neither the read nor the wait relies
// on a socket option, because some kernels accept options that they do not implement. Returns the
// datagram's length; 0 if there is none in this pass.
int Receive(ReceiveLoop &loop) {
    ssize_t cbRead = -1;
    if (!loop.blReadFailed) {
        cbRead = Read(loop);
        if (cbRead < 0 && errno == EINTR) return 0;
    }
    if (loop.blReadFailed || (cbRead < 0 && errno == EAGAIN)) {
        if (!WaitReadable(loop.fd)) return 0;
        cbRead = Read(loop);
    }
    loop.blReadFailed = cbRead < 0 && errno != EAGAIN && errno != EINTR;
    if (cbRead > 0) return static_cast<int>(cbRead);
    Debug(loop.conn.pLog, kModule, "recvfrom error! errno: %d [%s]\n", errno, strerror(errno));
    return 0;
}

void HandOn(const QIVEN_RECV &recv, nasinfo *pRecord) {
    if (recv.pfnFilter != nullptr && recv.pfnFilter(pRecord) != 1) return;
    if (recv.pfnLock != nullptr) recv.pfnLock(1);
    if (recv.pfnHandler != nullptr) recv.pfnHandler(pRecord);
    if (recv.pfnLock != nullptr) recv.pfnLock(0);
}

void ReceiveOne(ReceiveLoop &loop) {
    const int cbRead = Receive(loop);
    if (cbRead == 0) return;
    // The record still holds the previous packet if a sealed one cannot be opened, but it is not used then.
    const int iResult = QIVENPacketReadEncrypted(loop.conn.pLog, loop.rgbDatagram, cbRead, &loop.record);
    if (iResult <= 0) {
        Error(loop.conn.pLog, kModule, "PacketRead Error! ret=[%d]\n", iResult);
        return;
    }
    HandOn(loop.recv, &loop.record);
}

int Run(ReceiveLoop &loop) {
    const QIVEN_CONN &conn = loop.conn;
    for (;;) {
        const int iElapsed = loop.Elapsed();
        if (conn.iTimeout > 0 && iElapsed > conn.iTimeout) return 0;
        if (conn.pfnCancel != nullptr && conn.pfnCancel() == 1) return 0;
        if (loop.recv.pfnProgress != nullptr) loop.recv.pfnProgress(conn.iTimeout, iElapsed, 0);
        if (!SendDueQuery(loop)) return -1;
        ReceiveOne(loop);
    }
}

}  // namespace

int QIVENUDPServer(const QIVEN_CONN *pqivenConn, const QIVEN_RECV *pqivenRecv,
                   const QIVEN_CONN *pqivenConnSend, QIVEN_SEND *pqivenSend) {
    if (pqivenConn == nullptr) return -1;
    if (!Check(pqivenConn->pLog, kModule, nullptr != pqivenRecv, "NULL != pqivenRecv")) return -1;
    if (QIVENSocketInit() == -1) {
        Error(pqivenConn->pLog, kModule, "Init socket error.\n");
        return -1;
    }
    const Descriptor sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sock.IsOpen()) {
        Error(pqivenConn->pLog, kModule, "create socket error.\n");
        return -1;
    }
    if (!SetUp(*pqivenConn, sock.fd)) return -1;
    ReceiveLoop loop{*pqivenConn, *pqivenRecv, pqivenConnSend, pqivenSend, sock.fd, time(nullptr)};
    return Run(loop);
}
