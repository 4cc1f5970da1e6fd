/*
 * qiven/iface.h - the machine's usable IPv4 interfaces. Conventions: qiven/log.h.
 */
#ifndef QIVEN_IFACE_H
#define QIVEN_IFACE_H

#include <qiven/log.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Largest interface table. */
#define QIVEN_IFACE_MAX 64

/** One interface as it was at the moment of the enumeration. Addresses in network byte order. */
typedef struct QIVEN_NETIF {
    char szIfName[64];      /**< name as the kernel lists it */
    unsigned char rgMac[6]; /**< hardware address, in transmission order */
    uint32_t ulIP;          /**< IPv4 address */
    uint32_t ulMask;        /**< netmask */
    uint32_t ulBroadCast;   /**< broadcast address */
    uint32_t ulGateway;     /**< default gateway; known from configuration files only */
    uint32_t ulDNS;         /**< DNS server of this interface; known from a NetworkManager keyfile only */
    int32_t blStatic;       /**< 1 if a configuration file says static; set, but never cleared */
    int32_t blActive;       /**< 1 usable with all addresses read; 0 one of them could not be read */
} QIVEN_NETIF;

/**
 * The machine's DNS server, network byte order, 0xFFFFFFFF for none (0 until the first enumeration). Every
 * enumeration resets and rewrites it; not locked.
 */
QIVEN_API extern uint32_t gulDNS;

/**
 * Enumerates the usable interfaces: up, running, and neither loopback, point-to-point, bonding slave, tun nor
 * tap. Sets gulDNS, and completes the records from resolv.conf, NetworkManager keyfiles, and ifcfg files or
 * /etc/network/interfaces. An interface without an IPv4 address is listed with blActive 0.
 * @param rgNetIf  the caller's zeroed table; fields that no source determines keep their value
 * @param numNetIf its capacity, 1 to QIVEN_IFACE_MAX
 * @return number of interfaces listed, in the kernel's order (0 if there is none); -1 on a bad argument or
 *         if /proc/net/dev cannot be read. Calls from several threads are serialised by the caller
 * (gulDNS).
 */
QIVEN_API int QIVENIfaceInit(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf);
/** QIVENIfaceInit() for Linux, without the reset of gulDNS, which it does write. */
QIVEN_API int QIVENIfaceInitLnx(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf);
/**
 * Lists the usable interfaces: writes szIfName and sets blActive, nothing else. Reentrant.
 * @return number listed, or -1
 */
QIVEN_API int QIVENGetIfListLnx(const QIVEN_LOG *pLog, QIVEN_NETIF *rgNetIf, int numNetIf);
/**
 * Tests whether an interface is usable. Reentrant.
 * @return 0 usable; -1 not usable, or the kernel cannot be asked
 */
QIVEN_API int QIVENIfaceGetActive(const QIVEN_LOG *pLog, const char *szIf);
/**
 * Reads rgMac, ulIP, ulBroadCast and ulMask of the interface named by szIfName, in this order, from the
 * kernel.
 * @return 0 if all were read; -1 on a bad argument, without a socket, or at the first that was not read:
 * fields read before it keep their new values, and blActive becomes 0 if it was one of the addresses (not if
 * the socket or the hardware address failed). Reentrant.
 */
QIVEN_API int QIVENIfaceGetNetSetting(const QIVEN_LOG *pLog, QIVEN_NETIF *pNetIf);

/**
 * Enumerates like QIVENIfaceInit() and writes the result to level 1: one line for the DNS server, nine lines
 * for each interface.
 * @return 0; -1 if the enumeration failed
 */
QIVEN_API int QIVENIfaceDump(const QIVEN_LOG *pLog);

#ifdef __cplusplus
}
#endif

#endif
