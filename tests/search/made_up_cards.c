/* A replacement of the platform's library of numbered cards. */
#include <tavonetsdk.h>

#include <stdio.h>

/* 0: works. 1: fails. 2: has no usable address. 3: works. 40: fails. No others. */
int TAVONetGetCard1(int iCard, int iFlags, TAVO_NET_CARD *pCard) {
    if (iCard == 1 || iCard == 40 || iFlags != 0) return -1;
    if (iCard > 3) return 0;
    snprintf(pCard->szAddr, sizeof pCard->szAddr, "%s", iCard == 2 ? "1.2.3.4.5" : "127.0.0.1");
    return 1;
}
