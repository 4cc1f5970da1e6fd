/*
 * tavonetsdk.h - the machine's numbered network cards: the stand-in for the platform's network library on a
 * plain Linux machine (libtavonetsdk.so.6).
 */
#ifndef TAVONETSDK_H
#define TAVONETSDK_H

#if defined(__GNUC__)
#define TAVONETSDK_API __attribute__((visibility("default")))
#else
#define TAVONETSDK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** One card. 72 bytes; what lies outside the named fields is reserved and zero. */
typedef struct TAVO_NET_CARD {
    char rgchReserved1[30];
    char szAddr[16]; /**< IPv4 address as NUL-terminated dotted text, at offset 30 */
    char rgchReserved2[26];
} TAVO_NET_CARD;

/**
 * Describes a numbered card. Card N is the interface "ethN" if the machine has interfaces so named; else it
 * is the N-th interface, in the kernel's order, that is up, running, able to broadcast, not loopback, and has
 * an IPv4 address. Of several addresses the first counts. Reentrant.
 * @param iCard  index of the card, from 0
 * @param iFlags 0; reserved
 * @param pCard  zeroed by the caller, filled if the result is positive
 * @return positive if filled; 0 if there is no such card; negative if "ethN" has no IPv4 address, on a
 * bad argument, and if the kernel cannot be asked
 */
TAVONETSDK_API int TAVONetGetCard1(int iCard, int iFlags, TAVO_NET_CARD *pCard);

#ifdef __cplusplus
}
#endif

#endif
