/*
 * qiven/udp.h - sending one packet, the per-interface client, the receive loop. Conventions: qiven/log.h.
 */
#ifndef QIVEN_UDP_H
#define QIVEN_UDP_H

#include <qiven/iface.h>
#include <qiven/log.h>
#include <qiven/packet.h>

#ifdef __cplusplus
extern "C" {
#endif

/** UDP port on which hosts listen for queries, and searchers for answers. */
#define QIVEN_PORT 9999
/** Source port of sends that are bound to an interface. */
#define QIVEN_SOURCE_PORT 1234

/** Connection record of a sender or a listener. */
typedef struct QIVEN_CONN {
    char szAddr[16];        /**< dotted IPv4: destination of a sender, local address of a listener */
    uint16_t usPort;        /**< destination or local UDP port, host byte order */
    int32_t iTimeout;       /**< listener: limit in seconds, 0 or below for none; query connection: period */
    int (*pfnCancel)(void); /**< asked before each step; 1 means stop; may be null */
    QIVEN_LOG *pLog;        /**< log record of every message; may be null */
} QIVEN_CONN;

/** Callbacks of the receive loop; all run on the caller's thread, one at a time, and may be null. */
typedef struct QIVEN_RECV {
    /** Called with 1 before and with 0 after the handler, for every accepted record; result ignored. */
    int (*pfnLock)(int iLock);
    /** 1 hands the record on, anything else drops it; null hands every record on. */
    int (*pfnFilter)(nasinfo *pnasInfo);
    /** Receives each accepted record, which is valid during the call only; result ignored. */
    int (*pfnHandler)(nasinfo *pnasInfo);
    /** Called once per pass with the limit, the seconds since the bind, and 0; result ignored. */
    int (*pfnProgress)(int iTimeout, int iElapsed, int iZero);
} QIVEN_RECV;

/**
 * Sends one packet as one UDP datagram from a fresh socket with SO_REUSEADDR and SO_BROADCAST.
 * @param szPKTOutput the packet
 * @param cbPKTOutput its length, at least 1
 * @param pqivenConn  destination: szAddr and usPort are read
 * @param pNetIf      must not be null; read only if blBind is set
 * @param blBind      1: send from the interface's ulIP, port 1234; 0: the system picks both
 * @return cbPKTOutput if the datagram was sent; 0 on a bad argument; -1 on any other failure (level 1).
 *         Reentrant.
 */
QIVEN_API int QIVENUDPSend(const QIVEN_LOG *pLog, const unsigned char *szPKTOutput, int cbPKTOutput,
                           const QIVEN_CONN *pqivenConn, const QIVEN_NETIF *pNetIf, int blBind);

/**
 * Sends a request out of every active interface, each datagram with that interface's hardware address
 * (szMacAddr) and bound to it, then the last datagram once more unbound. The form of the packet depends on
 * the record:
 *   - process keys exist and ulPktType is 1: plain, with szPubKeyHex and ulProcessID added;
 *   - process keys exist and ulPeerProcessID is not 0: sealed with the key stored under szHostIdent and
 *     ulPeerProcessID, with ulProcessID added;
 *   - else plain.
 * The added values stay in the caller's record and list. A failed send on one interface is only reported.
 * @return 0; -1 on a bad argument, no interface, a missing key, a packet that cannot be built, no memory, or
 * if pfnCancel returned 1. One request serves one call at a time; uses the process keys and the key store.
 */
QIVEN_API int QIVENUDPClient(const QIVEN_CONN *pqivenConn, QIVEN_SEND *pqivenSend);

/**
 * Receive loop: binds a socket and hands every packet that decodes, plain or sealed, to the filter and then,
 * between lock calls, to the handler, until the limit has passed or pfnCancel returns 1. It looks at both at
 * least every 2 seconds, and whenever a signal interrupts its wait: a caller's interval timer gives finer
 * checks.
 * @param pqivenConn     where to listen: szAddr ("0.0.0.0" for every address), usPort, iTimeout, pfnCancel,
 * pLog
 * @param pqivenRecv     callbacks
 * @param pqivenConnSend null, or where to send queries: iTimeout above 0 is the period in seconds, -1 sends
 * one query, other values none
 * @param pqivenSend     the query; needed with pqivenConnSend
 * @return 0 if ended by the limit or by pfnCancel; -1 on a bad argument, a failed set-up, or a query that
 * could not be sent. The socket is closed on every path.
 */
QIVEN_API int QIVENUDPServer(const QIVEN_CONN *pqivenConn, const QIVEN_RECV *pqivenRecv,
                             const QIVEN_CONN *pqivenConnSend, QIVEN_SEND *pqivenSend);

#ifdef __cplusplus
}
#endif

#endif
