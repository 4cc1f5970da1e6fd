/*
 * qiven/watch.h - the search and the discovery port as handles with one descriptor each. Library:
 * libqiven-watch.so.1, link with -lqiven-watch -lqiven.
 *
 * Two levels. A watch finds the hosts of the segment and keeps their table: it asks, asks again for those who
 * missed it, merges what comes, and reports who appeared, changed and vanished. An endpoint is the port
 * itself: it receives and sends single packets, and a host answers queries with it. Both are used alike:
 * wait until the descriptor is readable, let the handle work, take what there is.
 *
 *   QIVEN_WATCH *pWatch;
 *   if (QIVENWatchOpen(&pWatch, NULL) < 0) ...
 *   struct pollfd readable = {QIVENWatchFd(pWatch), POLLIN, 0};
 *   for (;;) {
 *       poll(&readable, 1, -1);
 *       QIVENWatchDispatch(pWatch);
 *       const QIVEN_WATCH_EVENT *pEvent;
 *       while ((pEvent = QIVENWatchNext(pWatch)) != NULL) ...
 *   }
 *
 * Conventions of this header, beside those of qiven/log.h for addresses, texts and names:
 *
 *   Descriptor   One for the life of a handle, close-on-exec, to be waited on for reading only (poll,
 *                epoll, any event loop) and for nothing else. It is readable as long as there is work
 *                or something to take; sockets, timers and changes of interfaces are behind it. No call
 *                waits: each does a bounded amount of work and returns within 20 milliseconds.
 *   Results      0 or a count; a negative errno on failure. QIVENWatchError() has the words. A null
 *                handle is -EINVAL. Nothing is logged.
 *   Ownership    Handles are made by an open and freed by a close. A pointer that a call returns, and
 *                every pointer in what it points to, is the library's and holds until the next call on
 *                that handle. What a caller passes in is copied, or used during the call only.
 *   Versions     Records begin with cbSize. The caller sets it to the sizeof of the record that it
 *                passes; members that it does not know have their defaults. In records that the library
 *                returns it says how many bytes there are: newer libraries append members.
 *   Times        ...Us: microseconds; monotonic (CLOCK_MONOTONIC), or since 1970 in UTC if the name
 *                says Unix. ...Ms: milliseconds. Nothing here depends on the wall clock.
 *   Threads      A handle is used by one thread at a time; different handles may be used by different
 *                threads at once. They share the key pair of the process (qiven/keys.h). Its use is
 *                serialised in here, but not against callers of libqiven.so.1, who must not open sealed
 *                packets or release the keys while a handle with keys is open. TAVOQIVENDumpHost() does
 *                both.
 *   fork         The child may close handles, nothing else.
 *   Keys         A handle that is not opened with the flag ..._PLAIN makes the process's key pair if
 *                there is none, and the last such handle releases it again. Queries then carry the
 *                public key, so that hosts may seal their answers to this process.
 *   Strangers    Anybody can send anything. Nothing that arrives makes the memory of a handle grow
 *                beyond the bound that is stated at QIVENWatchOpen() and QIVENEndpointOpen().
 *   Losses       A datagram that finds no space in a socket is lost. Broadcasts are spread over eight
 *                sockets, each with a buffer of its own, and these are emptied before anything is
 *                decoded. A loss that happens all the same is counted: exactly as soon as the segment
 *                is quiet for 20 milliseconds, and never too high before that. If the kernel refuses
 *                socket filters, there is one socket only.
 */
#ifndef QIVEN_WATCH_H
#define QIVEN_WATCH_H

#include <qiven/log.h>
#include <qiven/packet.h>
#include <qiven/udp.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Size of an interface name with its NUL. */
#define QIVEN_IFNAME_SIZE 16
/** A watch keeps at most this many hosts. */
#define QIVEN_WATCH_HOSTS_MAX 65536
/** A watch keeps at most this many addresses of one host; a new one then takes the place of the oldest. */
#define QIVEN_WATCH_ADDRESSES_MAX 16

/** @name State of an interface (QIVEN_INTERFACE::ulState) */
/** @{ */
#define QIVEN_INTERFACE_USED 0       /**< queries and answers are sent out of it */
#define QIVEN_INTERFACE_FAILED 1     /**< used, but the last packet could not be sent: see iResult */
#define QIVEN_INTERFACE_NO_ADDRESS 2 /**< cannot be used: it has no IPv4 address */
#define QIVEN_INTERFACE_NO_CARRIER 3 /**< cannot be used: no cable, not associated */
#define QIVEN_INTERFACE_DOWN 4       /**< cannot be used: switched off */
#define QIVEN_INTERFACE_UNSUITABLE 5 /**< never used: loopback, point-to-point, tun, slave of a bond */
#define QIVEN_INTERFACE_LEFT_OUT 6   /**< not used: the caller's function said so */
#define QIVEN_INTERFACE_GONE 7       /**< no longer there; in events only */
/** @} */

/** An IPv4 address of an interface, network byte order. */
typedef struct QIVEN_INTERFACE_ADDRESS {
    uint32_t ulIP;        /**< the address */
    uint32_t ulMask;      /**< its netmask */
    uint32_t ulBroadCast; /**< its broadcast address; 0 if it has none */
} QIVEN_INTERFACE_ADDRESS;

/** An interface of this machine, as the kernel describes it. */
typedef struct QIVEN_INTERFACE {
    uint32_t cbSize;                          /**< bytes of this record */
    uint32_t ulState;                         /**< QIVEN_INTERFACE_... */
    uint32_t ulIfIndex;                       /**< the kernel's number of it, never 0 */
    uint32_t ulMaster;                        /**< number of the bridge or bond that it is part of, or 0 */
    uint32_t ulFlags;                         /**< IFF_... of netdevice(7) */
    int32_t iResult;                          /**< 0, or why the last packet could not be sent */
    char szIfName[QIVEN_IFNAME_SIZE];         /**< name; any byte but NUL and '/' */
    char szKind[QIVEN_IFNAME_SIZE];           /**< "bridge", "veth", "vlan", ...; empty for hardware */
    unsigned char rgMac[6];                   /**< hardware address, in transmission order */
    uint16_t usReserved;                      /**< 0 */
    uint32_t nAddresses;                      /**< elements of rgAddress */
    const QIVEN_INTERFACE_ADDRESS *rgAddress; /**< its addresses, the first is the one that it sends from */
} QIVEN_INTERFACE;

/**
 * The caller's choice of interfaces, asked whenever the kernel reports a new or changed one that could be
 * used; without such a function every usable interface is used. Must not call anything with the handle.
 * @param pInterface the interface, with ulState QIVEN_INTERFACE_USED; valid during the call
 * @param pvUser     the pvUser of the configuration
 * @return 1 to use the interface, 0 to leave it out
 */
typedef int (*QIVEN_INTERFACE_FUNC)(const QIVEN_INTERFACE *pInterface, void *pvUser);

/** What a handle has counted since it was opened. A datagram is counted in one member only, but in
 * ullReceived. */
typedef struct QIVEN_COUNTS {
    uint32_t cbSize;             /**< in and out: bytes of this record */
    uint32_t nSockets;           /**< sockets that share the port: 8, 1 where filters are refused, or 0 */
    uint64_t ullReceived;        /**< datagrams taken from the sockets, each once */
    uint64_t ullLost;            /**< datagrams that the kernel dropped */
    uint64_t ullRefused;         /**< received: no packet, or one that the reader refuses */
    uint64_t ullSealedForOthers; /**< received: sealed, and not for this process or damaged */
    uint64_t ullOwn;             /**< received: queries of this process, which come back */
    uint64_t ullOtherType;       /**< received: packets of types that were not asked for */
    uint64_t ullNoMemory;        /**< received, but there was no memory to keep it or what it said */
    uint64_t ullLeftOut;         /**< watch: answers of new hosts that came to a full table */
    uint64_t cbMemory;           /**< bytes that the handle has allocated at present */
} QIVEN_COUNTS;

/**
 * Words for a negative result of a function of this header.
 * @param iResult the result; others than those documented are described as the C library describes errno
 * @return a text without newline that is never freed; "success" for 0 or more. Reentrant.
 */
QIVEN_API const char *QIVENWatchError(int iResult);

/*
 * Endpoint: the discovery port.
 */

/** The discovery port as a handle. */
typedef struct QIVEN_ENDPOINT QIVEN_ENDPOINT;

/** @name Flags of an endpoint (QIVEN_ENDPOINT_CONF::ulFlags) */
/** @{ */
#define QIVEN_ENDPOINT_PLAIN 1U   /**< without keys: nothing sealed is opened */
#define QIVEN_ENDPOINT_OWN 2U     /**< also give out the queries of this process */
#define QIVEN_ENDPOINT_REFUSED 4U /**< also give out unreadable datagrams, with a null pnasInfo */
#define QIVEN_ENDPOINT_SHUT 8U    /**< with keys, but nothing sealed is opened, as a host has no use for it */
#define QIVEN_ENDPOINT_NO_PORT 16U /**< does not open the port: only lists interfaces and sends */
/** @} */

/** How an endpoint is opened. Zero is a sensible value for every member but cbSize. */
typedef struct QIVEN_ENDPOINT_CONF {
    uint32_t cbSize;                   /**< sizeof(QIVEN_ENDPOINT_CONF) */
    uint32_t ulFlags;                  /**< QIVEN_ENDPOINT_... */
    uint32_t ulTypes;                  /**< bit n: give out packets of type n (0 to 31); 0: of every type */
    QIVEN_INTERFACE_FUNC pfnInterface; /**< which interfaces to send out of; null: all that can be used */
    void *pvUser;                      /**< for pfnInterface */
} QIVEN_ENDPOINT_CONF;

/** @name What is known of a received datagram (QIVEN_RECEIVED::ulFlags) */
/** @{ */
#define QIVEN_RECEIVED_SEALED 1U    /**< it was sealed, and opened with the key of this process */
#define QIVEN_RECEIVED_OWN 2U       /**< a query of this process */
#define QIVEN_RECEIVED_LOCAL 4U     /**< the sender's address is one of this machine's */
#define QIVEN_RECEIVED_OFF_LINK 8U  /**< the sender's address is in no network of the interface */
#define QIVEN_RECEIVED_DIRECTED 16U /**< it was sent to this machine alone, not to all */
#define QIVEN_RECEIVED_KEY 32U    /**< the record has a process identifier and a key that can be sealed to */
#define QIVEN_RECEIVED_UNUSED 64U /**< it arrived by an interface that is not used */
/** @} */

/** One datagram and where it came from. */
typedef struct QIVEN_RECEIVED {
    uint32_t cbSize;                  /**< bytes of this record */
    uint32_t ulFlags;                 /**< QIVEN_RECEIVED_... */
    uint32_t ulSource;                /**< the sender's IPv4 address, network byte order */
    uint32_t ulIfIndex;               /**< interface by which it arrived */
    char szIfName[QIVEN_IFNAME_SIZE]; /**< its name; empty if it is not known (any more) */
    uint16_t usPort;                  /**< the sender's port, host byte order */
    uint16_t usReserved;              /**< 0 */
    uint32_t cbDatagram;              /**< bytes of pbDatagram, at most QIVEN_PACKET_MAX */
    uint64_t ullMonotonicUs;          /**< arrival at this machine, monotonic */
    int64_t llUnixUs;                 /**< the same in UTC */
    const nasinfo *pnasInfo;          /**< what the packet says; null for a datagram that cannot be read */
    const unsigned char *pbDatagram;  /**< the datagram itself, sealed if it was sealed */
} QIVEN_RECEIVED;

/** @name How a packet is sent (QIVEN_TO::ulFlags) */
/** @{ */
#define QIVEN_TO_SEGMENT 1U /**< out of ulIfIndex and the used interfaces that share a network with it */
#define QIVEN_TO_ADDRESS 2U /**< each copy carries address and netmask of its interface (0x12, 0x13) */
/** @} */

/** Where a packet goes, always as a broadcast. Zero is a sensible value for every member but cbSize. */
typedef struct QIVEN_TO {
    uint32_t cbSize;            /**< sizeof(QIVEN_TO) */
    uint32_t ulFlags;           /**< QIVEN_TO_... */
    uint32_t ulIfIndex;         /**< out of this interface; 0: out of every interface that is used */
    uint32_t ulPeerProcessID;   /**< put into a sealed packet: the process that it is for (0xC6) */
    const char *szPublicKeyHex; /**< key of the recipient, 64 hexadecimal digits; null: not sealed */
} QIVEN_TO;

/**
 * Opens the discovery port, UDP port 9999 on every address. The port is shared with every other program that
 * shares it. Memory of the handle: at most 2 MiB of datagrams not yet taken, and 2 MiB.
 * @param ppEndpoint receives the handle; null on failure
 * @param pConf      null: as with every member zero
 * @return 0; -EADDRINUSE if a program holds the port without sharing it; -EINVAL for a bad argument; -ENOMEM;
 *         else why sockets or keys cannot be made
 */
QIVEN_API int QIVENEndpointOpen(QIVEN_ENDPOINT **ppEndpoint, const QIVEN_ENDPOINT_CONF *pConf);
/** @return the descriptor, the same for the life of the handle; -EINVAL for a null handle */
QIVEN_API int QIVENEndpointFd(const QIVEN_ENDPOINT *pEndpoint);
/**
 * Takes the next datagram, in the order of arrival as far as the kernel noted it. Call it until it returns
 * null.
 * @return the datagram, valid until the next call on the handle; null when there is none (any more) for now
 */
QIVEN_API const QIVEN_RECEIVED *QIVENEndpointReceive(QIVEN_ENDPOINT *pEndpoint);
/**
 * Broadcasts a packet to port 9999, one datagram out of each interface of the choice, from its first address
 * and port 1234 (another one if that is taken), with its hardware address (0x7C). A packet of type 1 also
 * carries the key and the identifier of the process (0xC4, 0xC5) unless the handle has no keys; a sealed one
 * carries the latter. Where sending fails, QIVENEndpointInterface() says why.
 *
 * To answer a query, send out of its ulIfIndex with QIVEN_TO_SEGMENT, sealed with its key (szPubKeyHex) for
 * its process (ulProcessID) if it has QIVEN_RECEIVED_KEY. Do not answer one with QIVEN_RECEIVED_OFF_LINK: its
 * sender is not on the segment, and may be forged.
 * @param pqivenSend the request, as for QIVENPacketWrite(); neither it nor its record is changed
 * @param pTo        null: plain, out of every used interface
 * @return number of interfaces that the packet left by, above 0; -ENODEV if there is none to send out of,
 * -EINVAL for a bad argument or a request that makes no packet, -ENOMEM, or why the last one failed
 */
QIVEN_API int QIVENEndpointSend(QIVEN_ENDPOINT *pEndpoint, const QIVEN_SEND *pqivenSend, const QIVEN_TO *pTo);
/**
 * Lists the interfaces of this machine, used or not.
 * @param ulAfter 0 for the first one, else the ulIfIndex of the one before
 * @return the interface with the next higher number; null after the last
 */
QIVEN_API const QIVEN_INTERFACE *QIVENEndpointInterface(QIVEN_ENDPOINT *pEndpoint, uint32_t ulAfter);
/**
 * Reads the counts.
 * @param pCounts its cbSize says how many bytes are written
 * @return 0; -EINVAL
 */
QIVEN_API int QIVENEndpointCounts(QIVEN_ENDPOINT *pEndpoint, QIVEN_COUNTS *pCounts);
/** Closes the handle and frees everything that belongs to it. Null is allowed. */
QIVEN_API void QIVENEndpointClose(QIVEN_ENDPOINT *pEndpoint);

/*
 * Watch: the search.
 *
 * A search is a series of rounds. In each the query goes out of every used interface; the next one follows
 * when the answers have ebbed away. There are at least two, and more as long as they bring new hosts or
 * losses: a round in which the kernel dropped datagrams is repeated. When all is quiet and no query is due
 * the search has settled: who could answer has, usually 1.5 to 2 seconds after the first query, 3 if nobody
 * answers. After that the table is kept up to date by what is heard, and by a query from time to time if
 * ulQueryMs says so. An interface that comes is asked at once.
 *
 * Which answers are one host: those with the same host identifier; without one, with the same hardware
 * address; without both, with the same name and address. A host may have several addresses, on one interface
 * of this machine or on several. Answers under one identifier that contradict each other at the same time,
 * from different hardware addresses, senders or processes, are two machines: each is a host of its own, and a
 * conflict is reported once, which lasts until one of them vanishes. Machines that say the same under one
 * identifier cannot be told from one host with several interfaces, unless their processes have identifiers.
 * At most eight hosts share an identifier.
 *
 * A full table makes space for a new host by giving up one that no longer answers, or any one that has
 * answered in one round only. The new host is reported when it has answered in a second round: forged hosts
 * rarely do. For the same reason events of hosts that have answered in one round only come after the others,
 * together with those of types QIVEN_WATCH_ROUND and QIVEN_WATCH_SETTLED.
 */

/** A search as a handle. */
typedef struct QIVEN_WATCH QIVEN_WATCH;

/** @name Flags of a watch (QIVEN_WATCH_CONF::ulFlags) */
/** @{ */
#define QIVEN_WATCH_PLAIN 1U /**< without keys: hosts answer in clear */
/** @} */

/** How a search is opened. Zero is a sensible value for every member but cbSize. */
typedef struct QIVEN_WATCH_CONF {
    uint32_t cbSize;                   /**< sizeof(QIVEN_WATCH_CONF) */
    uint32_t ulFlags;                  /**< QIVEN_WATCH_... */
    uint32_t ulTypes;                  /**< bit n: packets of type n describe hosts; 0: types 2 and 6 do */
    uint32_t ulQueryMs;                /**< interval of the queries after the search has settled; 0: none */
    uint32_t ulVanishMs;               /**< silence after which a host has vanished; 0: never */
    uint32_t ulLimitMs;                /**< longest time until a search settles; 0: 60,000 */
    uint32_t ulChangeMs;               /**< time for which the changes of a host are joined; 0: 1,000 */
    uint32_t nHostsMax;                /**< hosts in the table; 0, or more than that: QIVEN_WATCH_HOSTS_MAX */
    uint64_t cbMemoryMax;              /**< bytes of the table; 0: 64 MiB */
    QIVEN_INTERFACE_FUNC pfnInterface; /**< which interfaces to ask on; null: all that can be used */
    void *pvUser;                      /**< for pfnInterface */
} QIVEN_WATCH_CONF;

/** @name Of an address of a host (QIVEN_WATCH_ADDRESS::ulFlags) */
/** @{ */
#define QIVEN_ADDRESS_DIFFERS 1U  /**< the sender's address is not the one that the answer names */
#define QIVEN_ADDRESS_OFF_LINK 2U /**< the sender's address is in no network of the interface */
#define QIVEN_ADDRESS_SEALED 4U   /**< the last answer was sealed to this process */
#define QIVEN_ADDRESS_UNUSED 8U   /**< heard by an interface that is not used for asking */
/** @} */

/** An address that a host has answered with, and how it was heard. */
typedef struct QIVEN_WATCH_ADDRESS {
    uint32_t ulIP;                    /**< the address that the answer names (ulIP), network order; 0: none */
    uint32_t ulSource;                /**< the sender's address, network order */
    uint32_t ulIfIndex;               /**< interface of this machine by which it was heard */
    uint32_t ulFlags;                 /**< QIVEN_ADDRESS_... of the last answer */
    char szIfName[QIVEN_IFNAME_SIZE]; /**< name of that interface */
    char szMacAddr[36];               /**< hardware address that the answer names (szMacAddr) */
    uint32_t ulReserved;              /**< 0 */
    uint64_t ullLastUs;               /**< last heard, monotonic */
} QIVEN_WATCH_ADDRESS;

/** A host. */
typedef struct QIVEN_WATCH_HOST {
    uint32_t cbSize;     /**< bytes of this record */
    uint32_t ulHost;     /**< its number: 1, 2, ... in the order of appearance, not used again */
    uint32_t ulConflict; /**< number of another host under its identifier; 0: none, or it has vanished */
    uint32_t nAddresses; /**< elements of rgAddress, at least 1 */
    const QIVEN_WATCH_ADDRESS *rgAddress; /**< its addresses, in the order in which they were first heard */
    const nasinfo *pnasInfo;              /**< what it said of itself when it was new or last changed */
    uint64_t ullAnswers;                  /**< answers of it */
    uint64_t ullFirstUs;                  /**< first heard, monotonic */
    uint64_t ullLastUs;                   /**< last heard, monotonic */
    int64_t llFirstUnixUs;                /**< first heard, UTC */
    int64_t llLastUnixUs;                 /**< last heard, UTC */
} QIVEN_WATCH_HOST;

/** @name Events (QIVEN_WATCH_EVENT::ulType), and the members that they set beside the times */
/** @{ */
#define QIVEN_WATCH_APPEARED 1  /**< pHost: a new host */
#define QIVEN_WATCH_CHANGED 2   /**< pHost, pnasInfoWas, ulChanged: a host describes itself in another way */
#define QIVEN_WATCH_VANISHED 3  /**< pHost: silent for too long, or given up in a full table */
#define QIVEN_WATCH_CONFLICT 4  /**< pHost, pHostOther: two machines under one identifier */
#define QIVEN_WATCH_LOST 5      /**< ullLost: so many more datagrams were dropped by the kernel */
#define QIVEN_WATCH_INTERFACE 6 /**< pInterface: it came, went, changed, or cannot be asked */
#define QIVEN_WATCH_ROUND 7     /**< a round is over; ullLost and ulRound to nNew are its own */
#define QIVEN_WATCH_SETTLED 8   /**< the search has settled; ulRound, and ullLost of its last round */
#define QIVEN_WATCH_FULL 9      /**< ullLeftOut: so many more answers of new hosts came to a full table */
/** @} */

/** @name What has changed (QIVEN_WATCH_EVENT::ulChanged) */
/** @{ */
#define QIVEN_CHANGED_RECORD 1U  /**< the description: any field but addresses, hardware address and keys */
#define QIVEN_CHANGED_ADDRESS 2U /**< an address of the host is new */
/** @} */

/** An event. Members that its type does not set are 0. */
typedef struct QIVEN_WATCH_EVENT {
    uint32_t cbSize;                    /**< bytes of this record */
    uint32_t ulType;                    /**< QIVEN_WATCH_... */
    uint64_t ullSeq;                    /**< 1, 2, ...: one more per event of the handle */
    uint64_t ullMonotonicUs;            /**< when it came about, monotonic */
    int64_t llUnixUs;                   /**< when it came about, UTC */
    const QIVEN_WATCH_HOST *pHost;      /**< the host, as it is now */
    const QIVEN_WATCH_HOST *pHostOther; /**< the other one */
    const nasinfo *pnasInfoWas; /**< the record when the host was last reported; null if it is the same */
    const QIVEN_INTERFACE *pInterface; /**< the interface */
    uint64_t ullLost;                  /**< datagrams */
    uint64_t ullLeftOut;               /**< answers */
    uint32_t ulChanged;                /**< QIVEN_CHANGED_... */
    uint32_t ulRound;                  /**< number of the round, from 1 */
    uint32_t nAsked;                   /**< interfaces that were asked */
    uint32_t nNotAsked;                /**< interfaces that could not be asked */
    uint32_t nAnswers;                 /**< answers that came */
    uint32_t nNew;                     /**< hosts that appeared */
} QIVEN_WATCH_EVENT;

/**
 * Opens a search and sends the first query. Without a usable interface it waits for one. Memory of the
 * handle: cbMemoryMax for the table, whatever strangers send, at most 2 MiB of datagrams not yet looked at,
 * and 2 MiB.
 * @param ppWatch receives the handle; null on failure
 * @param pConf   null: as with every member zero
 * @return as QIVENEndpointOpen()
 */
QIVEN_API int QIVENWatchOpen(QIVEN_WATCH **ppWatch, const QIVEN_WATCH_CONF *pConf);
/** @return the descriptor, the same for the life of the handle; -EINVAL for a null handle */
QIVEN_API int QIVENWatchFd(const QIVEN_WATCH *pWatch);
/**
 * For loops that do not wait on the descriptor but look at it from time to time.
 * @return milliseconds until there is work at the latest (0: now), -1 if there is no such time
 */
QIVEN_API int QIVENWatchTimeout(QIVEN_WATCH *pWatch);
/**
 * Does what there is to do: empties the sockets, reads what came, asks when it is time. Call it when the
 * descriptor is readable; more often does no harm.
 * @return 0; -EINVAL
 */
QIVEN_API int QIVENWatchDispatch(QIVEN_WATCH *pWatch);
/**
 * Takes the next event. Events of one host are joined while they wait: a host that appears, changes and is
 * not taken yet has appeared, as it is now; so there are never more events than hosts, interfaces and a few.
 * Call it until it returns null.
 * @return the event, valid until the next call on the handle; null when there is none (any more) for now
 */
QIVEN_API const QIVEN_WATCH_EVENT *QIVENWatchNext(QIVEN_WATCH *pWatch);
/** Asks now, and searches until all is quiet again. @return 0; -EINVAL */
QIVEN_API int QIVENWatchQuery(QIVEN_WATCH *pWatch);
/**
 * Lists the hosts in the order of appearance, also those whose event was not taken yet.
 * @param ulAfter 0 for the first one, else the ulHost of the one before, whether it is still there or not
 * @return the host with the next higher number; null after the last
 */
QIVEN_API const QIVEN_WATCH_HOST *QIVENWatchHost(QIVEN_WATCH *pWatch, uint32_t ulAfter);
/** Lists the interfaces of this machine, as QIVENEndpointInterface() does. */
QIVEN_API const QIVEN_INTERFACE *QIVENWatchInterface(QIVEN_WATCH *pWatch, uint32_t ulAfter);
/** Reads the counts, as QIVENEndpointCounts() does. */
QIVEN_API int QIVENWatchCounts(QIVEN_WATCH *pWatch, QIVEN_COUNTS *pCounts);
/** Closes the handle and frees everything that belongs to it, events not taken included. Null is allowed. */
QIVEN_API void QIVENWatchClose(QIVEN_WATCH *pWatch);

#ifdef __cplusplus
}
#endif

#endif
