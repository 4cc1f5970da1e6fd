#include <qiven/udp.h>

#include <linux/filter.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "log/descriptor.h"
#include "log/message.h"
#include "udp/address.h"

using qiven::Descriptor;
using qiven::log::Check;
using qiven::log::Debug;
using qiven::log::Error;
using namespace qiven::udp;

namespace {

constexpr int kReceiveBufferSize = 65536;
constexpr int kWaitSeconds = 2;

// What one call of the server works with.
struct Loop {
    const QIVEN_CONN &conn;
    const QIVEN_RECV &recv;
    const QIVEN_CONN *pConnSend;
    QIVEN_SEND *pSend;
    int fd;
    bool blReadWaits;  // otherwise somebody else has to
    time_t start;
    time_t nextQuery = 0;  // seconds after the start
    bool blQuerySent = false;
    nasinfo record{};
    unsigned char rgbDatagram[QIVEN_PACKET_MAX]{};

    int Elapsed() const { return static_cast<int>(time(nullptr) - start); }
};

// Prepares the socket and binds it; false after a message.
bool SetUp(const QIVEN_CONN &conn, int fd) {
    if (!EnableOption(fd, SO_REUSEADDR)) Error(conn.pLog, kRoom, "control setsockopt (SO_REUSEADDR)\n");
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBufferSize, sizeof kReceiveBufferSize) != 0) {
        Error(conn.pLog, kRoom, "set sock opt error: %s\n", strerror(errno));
    }
    sockaddr_in local;
    if (!ToAddress(conn, local)) {
        Error(conn.pLog, kRoom, "fail to translate IP addr\n");
        return false;
    }
    if (bind(fd, Generic(local), sizeof local) != 0) {
        Error(conn.pLog, kRoom, "bind(sockfd=%d, servaddr.sin_addr.s_addr = %lu) error!! errno: %d [%s]\n",
              fd, static_cast<unsigned long>(local.sin_addr.s_addr), errno, strerror(errno));
        return false;
    }
    return true;
}

// Lets a read wait by itself, which saves a system call for each datagram; false when that cannot be had. The
// filter takes every datagram. With a filter the kernel looks at checksums when datagrams arrive; without one
// the read does, and begins to wait anew after each bad one: for ever, if somebody keeps sending them.
bool LetReadWait(int fd) {
    sock_filter takeAll = BPF_STMT(BPF_RET | BPF_K, UINT32_MAX);
    const sock_fprog program{1, &takeAll};
    const timeval wait{kWaitSeconds, 0};
    return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0 &&
           setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait) == 0;
}

bool IsQueryDue(const Loop &loop) {
    if (loop.pConnSend->iTimeout > 0) return loop.Elapsed() > loop.nextQuery;
    return loop.pConnSend->iTimeout == -1 && !loop.blQuerySent;
}

// Sends the query when it is due; false when it could not be sent.
bool SendDueQuery(Loop &loop) {
    if (loop.pConnSend == nullptr || !IsQueryDue(loop)) return true;
    if (QIVENUDPClient(loop.pConnSend, loop.pSend) == -1) {
        Error(loop.conn.pLog, kRoom, "broadcast query packet error!\n");
        return false;
    }
    loop.blQuerySent = true;
    loop.nextQuery += loop.pConnSend->iTimeout;
    return true;
}

bool WaitReadable(int fd) {
    pollfd readable{fd, POLLIN, 0};
    return poll(&readable, 1, kWaitSeconds * 1000) > 0;
}

// Reads one datagram into the buffer. Returns its length; 0 when there is none this pass.
int Receive(Loop &loop) {
    if (!loop.blReadWaits && !WaitReadable(loop.fd)) return 0;
    const int iFlags = loop.blReadWaits ? 0 : MSG_DONTWAIT;
    const ssize_t cbRead =
        recvfrom(loop.fd, loop.rgbDatagram, sizeof loop.rgbDatagram, iFlags, nullptr, nullptr);
    if (cbRead > 0) return static_cast<int>(cbRead);
    const bool blWaited = loop.blReadWaits && cbRead < 0 && (errno == EAGAIN || errno == EINTR);
    if (!blWaited) Debug(loop.conn.pLog, kRoom, "recvfrom error! errno: %d [%s]\n", errno, strerror(errno));
    return 0;
}

void HandOn(const QIVEN_RECV &recv, nasinfo *pRecord) {
    if (recv.pfnFilter != nullptr && recv.pfnFilter(pRecord) != 1) return;
    if (recv.pfnLock != nullptr) recv.pfnLock(1);
    if (recv.pfnHandler != nullptr) recv.pfnHandler(pRecord);
    if (recv.pfnLock != nullptr) recv.pfnLock(0);
}

void ReceiveOne(Loop &loop) {
    const int cbRead = Receive(loop);
    if (cbRead == 0) return;
    // A sealed packet that cannot be opened leaves the record as it was, but then nobody gets to see it.
    const int iResult = QIVENPacketReadEncrypted(loop.conn.pLog, loop.rgbDatagram, cbRead, &loop.record);
    if (iResult <= 0) {
        Error(loop.conn.pLog, kRoom, "PacketRead Error! ret=[%d]\n", iResult);
        return;
    }
    HandOn(loop.recv, &loop.record);
}

int Run(Loop &loop) {
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
    if (!Check(pqivenConn->pLog, kRoom, nullptr != pqivenRecv, "NULL != pqivenRecv")) return -1;
    if (QIVENSocketInit() == -1) {
        Error(pqivenConn->pLog, kRoom, "Init socket error.\n");
        return -1;
    }
    const Descriptor sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sock.IsOpen()) {
        Error(pqivenConn->pLog, kRoom, "create socket error.\n");
        return -1;
    }
    if (!SetUp(*pqivenConn, sock.fd)) return -1;
    const bool blReadWaits = LetReadWait(sock.fd);
    Loop loop{*pqivenConn, *pqivenRecv, pqivenConnSend, pqivenSend, sock.fd, blReadWaits, time(nullptr)};
    return Run(loop);
}
