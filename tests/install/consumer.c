/* What a C program of an installed tree includes and links: the library through qiven.pc, the stand-in by
 * name. */
#include <qiven/qiven.h>

#include <tavocore.h>
#include <stdio.h>

int main(void) {
    TLIBC_SZHASH_HANDLE pHash = TLIBCSzHashAlloc(0);
    if (QIVENProcessKeyInit() != 0 || TAVOQIVENGet2Hash(&pHash) < 0) return 1;
    printf("%u\n", (unsigned)QIVENHeaderSize);
    QIVENProcessKeyCleanup();
    TLIBCSzHashFree(pHash);
    return 0;
}
