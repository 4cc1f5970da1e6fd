/*
 * qiven/search.h - the one-call host search, its query broadcast, and the reading of its host list.
 * Conventions: qiven/log.h. These functions report mostly to syslog(3).
 *
 * Host list: one host per answer and line, "%u,%u,%s,%s,%s\n" of ulModel, ulField49, szHostName, dotted ulIP
 * and szHostIdent (as received: no quoting, no escaping). It is /tmp/tavoqx.list while a search writes it and
 * /tmp/tavoqx.list.tmp when the search has finished.
 */
#ifndef QIVEN_SEARCH_H
#define QIVEN_SEARCH_H

#include <qiven/log.h>

#ifdef __cplusplus
extern "C" {
#endif

/** String hash of the core library (tavocore.h calls a pointer to it TLIBC_SZHASH_HANDLE). */
struct TLIBC_SZHASH;

/** Card that the query is broadcast on: -1 (the default) for cards 0 to 31, else this card only. Not locked.
 */
QIVEN_API extern int32_t iIFNum;

/**
 * Searches the segment: broadcasts the query on every card, listens on UDP port 9999 for 10 seconds, appends
 * a line per answer to the host list and gives it its finished name. Answers of type 6 go to
 * /tmp/grinst_chche.list instead, when that file exists. Blocks for 10 to 13 seconds; one search at a time in
 * a process. Makes and releases the process keys, and sets gpLog for its duration.
 * @return 0 when the search ran (even when the final rename failed); -1 when the list cannot be created, the
 * keys cannot be made, a card failed, or the port cannot be bound. Lines of a failed search stay, and the
 * next search appends to them.
 */
QIVEN_API int TAVOQIVENDumpHost(void);

/** Broadcasts the 20-byte query twice from every card. @return mask of failed cards, as below; 0 for success
 */
QIVEN_API uint32_t ErrQIVENSendQueryPkt(void);
/**
 * Broadcasts a packet once from every card (or from card iIFNum).
 * @return bit i is set when card i failed (an index above 31 sets bit 31); 0 when none did
 */
QIVEN_API uint32_t ErrQIVENSendBroadcastUdp(const void *pPkt, int cbPkt);
/**
 * Broadcasts a packet to 255.255.255.255 port 9999 from one address. Reentrant.
 * @param pAddr IPv4 address of the card, network byte order
 * @return 0 when the whole packet was sent, else -1
 */
QIVEN_API int BroadcastUdpByInterface(const void *pPkt, int cbPkt, const uint32_t *pAddr);

/**
 * Reads the finished host list into a string hash (key "name(address)", value "address") and deletes the
 * list. Lines need 5 columns, a model other than 0 and a second column of at least 240.
 * @param ppHash address of the caller's hash handle, which may be replaced when the hash grows
 * @return number of pairs in the hash; 0 when there is no finished list; -1 when ppHash is null, without
 * memory to read the list, or on a read error. The list is deleted whenever it could be opened. A line that
 * the hash has no memory for is left out, and only missing from that number.
 */
QIVEN_API int TAVOQIVENGet2Hash(struct TLIBC_SZHASH **ppHash);

#ifdef __cplusplus
}
#endif

#endif
