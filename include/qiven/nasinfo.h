/*
 * qiven/nasinfo.h - the host-information record and its service flags. Conventions: qiven/log.h.
 */
#ifndef QIVEN_NASINFO_H
#define QIVEN_NASINFO_H

#include <qiven/log.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Number of elements in each array of the record. */
#define QIVEN_ARRAY_MAX 32
/** Service numbers run from 0 to QIVEN_SERVICE_MAX - 1. */
#define QIVEN_SERVICE_MAX 128

/** @name Packet types (ulPktType) */
/** @{ */
#define QIVEN_PKT_QUERY 1       /**< asks every host on the segment to describe itself */
#define QIVEN_PKT_ANSWER 2      /**< describes a host */
#define QIVEN_PKT_NETSETTING 3  /**< network settings; must carry 0x20, 0x21 and 0x29 */
#define QIVEN_PKT_ANSWER_INST 6 /**< describes a host for the second host list of a search */
/** @} */

/**
 * One host's information. A plain structure of fixed layout (12,192 bytes on LP64), owned by the caller.
 * Texts are NUL-terminated: an array of N bytes holds at most N - 1 characters. Integers are in host byte
 * order, except those marked "network order", which hold IPv4 addresses as inet_aton(3) makes them. The
 * comment behind a field names the packet identifiers that carry it; a field without a meaning of its own is
 * carried faithfully, and the applications that fill and read the record give it one.
 */
typedef struct nasinfo {
    unsigned char rgbReserved[8]; /**< no packet field; cleared with the rest of the record */
    char szHostName[36];          /**< 0x11, 0x21: the host's name */
    char szHostIdent[36];         /**< 0x19, 0x29: identifies the host; names its key in the peer key store */
    char szMacAddr[36];           /**< 0x7C: "aa:bb:cc:dd:ee:ff" of the interface that the packet left by */
    char szLongText[1540];        /**< 0x1A (up to 255 bytes) or 0x2A (in chunks): at most 1535 characters.
                                       Longer ones are written, but refused by every reader */
    char szField50[20];           /**< 0x50 */
    char szField51[20];           /**< 0x51 */
    char szField52[260];          /**< 0x52 */
    char szField53[260];          /**< 0x53 */
    char szField56[128];          /**< 0x56 */
    char szField57[128];          /**< 0x57 */
    char szField58[128];          /**< 0x58 */
    char szField59[128];          /**< 0x59 */
    char szField5A[128];          /**< 0x5A */
    char szField5B[128];          /**< 0x5B */
    char szField5C[4];            /**< 0x5C */
    char szField5D[4];            /**< 0x5D */
    char szField70[68];           /**< 0x70 */
    char szField73[12];           /**< 0x73: becomes szFieldC0 too if a packet leaves that empty */
    char szFieldA2[36];           /**< 0xA2 */
    char szField4A[496];          /**< 0x4A */
    char szField77[8];            /**< 0x77 */
    char szField7E[8];            /**< 0x7E */
    char szField78[48];           /**< 0x78 */
    char szField7F[48];           /**< 0x7F */
    uint32_t ulField54;           /**< 0x54 */
    uint32_t ulField55;           /**< 0x55 */
    uint32_t ulField10;           /**< 0x10, 0x20 */
    uint32_t ulIP;                /**< 0x12, 0x22: the host's IPv4 address, network order */
    uint32_t ulAddr13;            /**< 0x13, 0x23, network order */
    uint32_t ulAddr14;            /**< 0x14, 0x24, network order */
    uint32_t ulAddr15;            /**< 0x15, 0x25, network order */
    uint32_t ulField18;           /**< 0x18 */
    uint32_t ulField1F;           /**< 0x1F */
    uint32_t ulAddr1E;            /**< 0x1E, network order */
    uint32_t ulField75;           /**< 0x75 */
    uint32_t ulField76;           /**< 0x76 */
    uint32_t ulFieldA7;           /**< 0xA7 */
    uint32_t ulModel;             /**< 0x48: model number, first column of a host-list line */
    uint32_t ulField49;           /**< 0x49: second column of a host-list line */
    uint32_t ulField7D;           /**< 0x7D */
    uint32_t ulField71;           /**< 0x71 */
    uint32_t ulFieldA4;           /**< 0xA4: must be in every packet */
    uint32_t ulFieldA0;           /**< 0xA0 */
    uint32_t ulFieldA3;           /**< 0xA3 */
    uint32_t ulPktType;           /**< 0x01: packet type (QIVEN_PKT_*), must be in every packet */
    uint32_t ulFieldA6;           /**< 0xA6 */
    uint32_t ulField60;           /**< 0x60 */
    uint32_t ulField79;           /**< 0x79 */
    uint32_t ulField80;           /**< 0x80 */
    uint32_t ulField7B;           /**< 0x7B */
    uint64_t ullServSupp0;        /**< 0xB0: services 0 to 63 supported */
    uint64_t ullServSupp1;        /**< 0xB1: services 64 to 127 supported */
    uint64_t ullServRun0;         /**< 0xB8: services 0 to 63 running */
    uint64_t ullServRun1;         /**< 0xB9: services 64 to 127 running */
    uint32_t ulField4D;           /**< 0x4D */
    uint32_t ulFieldBA;           /**< 0xBA */
    uint32_t ulArrayCount;        /**< 0xBB: how many elements of each listed array a writer looks at */
    char rgszFieldBC[QIVEN_ARRAY_MAX][64]; /**< 0xBC */
    char rgszFieldBD[QIVEN_ARRAY_MAX][64]; /**< 0xBD */
    char rgszFieldBE[QIVEN_ARRAY_MAX][64]; /**< 0xBE */
    char rgszFieldBF[QIVEN_ARRAY_MAX][64]; /**< 0xBF */
    char szFieldC0[32];                    /**< 0xC0: taken from szField73 if empty */
    uint32_t ulField90;                    /**< 0x90 */
    char szFieldC1[8];                     /**< 0xC1 */
    uint32_t ulFieldC2;                    /**< 0xC2 */
    uint32_t ulFieldC3;                    /**< 0xC3 */
    char szPubKeyHex[65];                  /**< 0xC4: the sender's public key, 64 lower-case hex digits */
    uint32_t ulProcessID;                  /**< 0xC5: the sender's process identifier */
    uint32_t ulPeerProcessID;              /**< 0xC6: the process that the packet is for, sealed if not 0 */
} nasinfo;

/*
 * Service flags: two independent bitmaps of 128 services in the record, "supported" and "running". Service n
 * is bit (n mod 64) of word (n div 64). The library gives the numbers no meaning. To send the flags,
 * list their fields with QIVENSendPktIDAddServ(). Reentrant; one thread changes a record at a time.
 *
 * pnasInfo null, or a service number of 128 or more: reported on level 1, result -1, nothing changed.
 */

/** Clears all 128 "supported" flags. @return 0 or -1. */
QIVEN_API int QIVENNasinfoServSuppClear(const QIVEN_LOG *pLog, nasinfo *pnasInfo);
/** Sets one "supported" flag; the others stay. @return 0 or -1. */
QIVEN_API int QIVENNasinfoServSuppSet(const QIVEN_LOG *pLog, nasinfo *pnasInfo, unsigned int id);
/** Reads one "supported" flag. @return 1 set, 0 not set, -1 bad argument. */
QIVEN_API int QIVENNasinfoServSuppGet(const QIVEN_LOG *pLog, const nasinfo *pnasInfo, unsigned int id);
/** Clears all 128 "running" flags. @return 0 or -1. */
QIVEN_API int QIVENNasinfoServRunClear(const QIVEN_LOG *pLog, nasinfo *pnasInfo);
/** Sets one "running" flag; the others stay. @return 0 or -1. */
QIVEN_API int QIVENNasinfoServRunSet(const QIVEN_LOG *pLog, nasinfo *pnasInfo, unsigned int id);
/** Reads one "running" flag. @return 1 set, 0 not set, -1 bad argument. */
QIVEN_API int QIVENNasinfoServRunGet(const QIVEN_LOG *pLog, const nasinfo *pnasInfo, unsigned int id);

#ifdef __cplusplus
}
#endif

#endif
