/*
 * qiven/search.h - the one-call host search, its query broadcast, and the reading of its host list.
 * Conventions: qiven/log.h. These functions report mostly to syslog(3).
 *
 * Host list: one host per answer and line, "%u,%u,%s,%s,%s\n" of ulModel, ulField49, szHostName, dotted ulIP
 * and szHostIdent (as received: no quoting, no escaping). It is /tmp/tavoqx.list while a search writes it and
 * /tmp/tavoqx.list.tmp after the search has finished.
 */
#ifndef QIVEN_SEARCH_H
#define QIVEN_SEARCH_H

#include <qiven/log.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Number of the interface on which the query is broadcast, as TAVONetGetCard1() of the platform counts them:
 * -1 (the default) for 0 to 31, else this one only. Not locked.
 */
QIVEN_API extern int32_t iIFNum;

/**
 * Searches the segment: broadcasts the query on every numbered interface, listens on UDP port 9999 for 10
 * seconds, appends a line per answer to the host list and gives it its finished name. Answers of type 6 go to
 * /tmp/grinst_chche.list instead, if that file exists. Blocks for 10 to 13 seconds; one search at a time in
 * a process. Creates and releases the process keys, and sets gpLog for its duration.
 * @return 0 if the search ran (even if the final rename failed); -1 if the list or the
 * keys cannot be created, the query cannot be sent on an interface, or the port cannot be bound. Lines of a
 * failed search stay, and the next search appends to them.
 */
QIVEN_API int TAVOQIVENDumpHost(void);

/**
 * Broadcasts the 20-byte query twice on every numbered interface.
 * @return mask of failed interfaces, as below; 0 for success
 */
QIVEN_API uint32_t ErrQIVENSendQueryPkt(void);
/**
 * Broadcasts a packet once on every numbered interface (or only on number iIFNum).
 * @return bit i is set if interface number i failed (a number above 31 sets bit 31); 0 if none did
 */
QIVEN_API uint32_t ErrQIVENSendBroadcastUdp(const void *pPkt, int cbPkt);
/**
 * Broadcasts a packet to 255.255.255.255 port 9999 from one address. Reentrant.
 * @param pAddr IPv4 address of the interface, network byte order
 * @return 0 if the whole packet was sent, else -1 (with a line in syslog; a null pointer or a negative
 * length is one of the reasons)
 */
QIVEN_API int BroadcastUdpByInterface(const void *pPkt, int cbPkt, const uint32_t *pAddr);

/**
 * Reads the finished host list into a string hash (key "name(address)", value "address") and deletes the
 * list. A line needs 5 columns, a model other than 0, a second column of at least 240, and at most 65,536
 * characters; every other line is skipped, and reported to syslog unless only its second column is too small.
 * @param ppHash address of the caller's TLIBC_SZHASH_HANDLE (tavocore.h), which may be replaced if the hash
 *               grows. Its type is not named here because the platform's header may call it anything.
 * @return number of pairs in the hash; 0 if there is no finished list; -1 if ppHash is null, without memory
 *         to read the list, if the list is a device, or on a read error. The list is deleted whenever it
 *         could be opened. A line that the hash has no memory for is left out, and only missing from that
 *         number.
 */
QIVEN_API int TAVOQIVENGet2Hash(void *ppHash);

#ifdef __cplusplus
}
#endif

#endif
