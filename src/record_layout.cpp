// The layout of every public record, frozen: programs that were built against an older header rely on it.
#include <qiven/qiven.h>

#include <cstddef>

namespace {

// Records that hold pointers are frozen for LP64 only.
constexpr bool kLP64 = sizeof(void *) == 8;

static_assert(sizeof(nasinfo) == 12192);
static_assert(offsetof(nasinfo, rgbReserved) == 0);
static_assert(offsetof(nasinfo, szHostName) == 8);
static_assert(offsetof(nasinfo, szHostIdent) == 44);
static_assert(offsetof(nasinfo, szMacAddr) == 80);
static_assert(offsetof(nasinfo, szLongText) == 116);
static_assert(offsetof(nasinfo, szField50) == 1656);
static_assert(offsetof(nasinfo, szField51) == 1676);
static_assert(offsetof(nasinfo, szField52) == 1696);
static_assert(offsetof(nasinfo, szField53) == 1956);
static_assert(offsetof(nasinfo, szField56) == 2216);
static_assert(offsetof(nasinfo, szField57) == 2344);
static_assert(offsetof(nasinfo, szField58) == 2472);
static_assert(offsetof(nasinfo, szField59) == 2600);
static_assert(offsetof(nasinfo, szField5A) == 2728);
static_assert(offsetof(nasinfo, szField5B) == 2856);
static_assert(offsetof(nasinfo, szField5C) == 2984);
static_assert(offsetof(nasinfo, szField5D) == 2988);
static_assert(offsetof(nasinfo, szField70) == 2992);
static_assert(offsetof(nasinfo, szField73) == 3060);
static_assert(offsetof(nasinfo, szFieldA2) == 3072);
static_assert(offsetof(nasinfo, szField4A) == 3108);
static_assert(offsetof(nasinfo, szField77) == 3604);
static_assert(offsetof(nasinfo, szField7E) == 3612);
static_assert(offsetof(nasinfo, szField78) == 3620);
static_assert(offsetof(nasinfo, szField7F) == 3668);
static_assert(offsetof(nasinfo, ulField54) == 3716);
static_assert(offsetof(nasinfo, ulField55) == 3720);
static_assert(offsetof(nasinfo, ulField10) == 3724);
static_assert(offsetof(nasinfo, ulIP) == 3728);
static_assert(offsetof(nasinfo, ulAddr13) == 3732);
static_assert(offsetof(nasinfo, ulAddr14) == 3736);
static_assert(offsetof(nasinfo, ulAddr15) == 3740);
static_assert(offsetof(nasinfo, ulField18) == 3744);
static_assert(offsetof(nasinfo, ulField1F) == 3748);
static_assert(offsetof(nasinfo, ulAddr1E) == 3752);
static_assert(offsetof(nasinfo, ulField75) == 3756);
static_assert(offsetof(nasinfo, ulField76) == 3760);
static_assert(offsetof(nasinfo, ulFieldA7) == 3764);
static_assert(offsetof(nasinfo, ulModel) == 3768);
static_assert(offsetof(nasinfo, ulField49) == 3772);
static_assert(offsetof(nasinfo, ulField7D) == 3776);
static_assert(offsetof(nasinfo, ulField71) == 3780);
static_assert(offsetof(nasinfo, ulFieldA4) == 3784);
static_assert(offsetof(nasinfo, ulFieldA0) == 3788);
static_assert(offsetof(nasinfo, ulFieldA3) == 3792);
static_assert(offsetof(nasinfo, ulPktType) == 3796);
static_assert(offsetof(nasinfo, ulFieldA6) == 3800);
static_assert(offsetof(nasinfo, ulField60) == 3804);
static_assert(offsetof(nasinfo, ulField79) == 3808);
static_assert(offsetof(nasinfo, ulField80) == 3812);
static_assert(offsetof(nasinfo, ulField7B) == 3816);
static_assert(offsetof(nasinfo, ullServSupp0) == 3824);
static_assert(offsetof(nasinfo, ullServSupp1) == 3832);
static_assert(offsetof(nasinfo, ullServRun0) == 3840);
static_assert(offsetof(nasinfo, ullServRun1) == 3848);
static_assert(offsetof(nasinfo, ulField4D) == 3856);
static_assert(offsetof(nasinfo, ulFieldBA) == 3860);
static_assert(offsetof(nasinfo, ulArrayCount) == 3864);
static_assert(offsetof(nasinfo, rgszFieldBC) == 3868);
static_assert(offsetof(nasinfo, rgszFieldBD) == 5916);
static_assert(offsetof(nasinfo, rgszFieldBE) == 7964);
static_assert(offsetof(nasinfo, rgszFieldBF) == 10012);
static_assert(offsetof(nasinfo, szFieldC0) == 12060);
static_assert(offsetof(nasinfo, ulField90) == 12092);
static_assert(offsetof(nasinfo, szFieldC1) == 12096);
static_assert(offsetof(nasinfo, ulFieldC2) == 12104);
static_assert(offsetof(nasinfo, ulFieldC3) == 12108);
static_assert(offsetof(nasinfo, szPubKeyHex) == 12112);
static_assert(offsetof(nasinfo, ulProcessID) == 12180);
static_assert(offsetof(nasinfo, ulPeerProcessID) == 12184);

static_assert(sizeof(QIVEN_FIELD_ATTRIB) == 24);
static_assert(offsetof(QIVEN_FIELD_ATTRIB, ulPktId) == 0);
static_assert(offsetof(QIVEN_FIELD_ATTRIB, ulType) == 4);
static_assert(offsetof(QIVEN_FIELD_ATTRIB, ulOffset) == 8);
static_assert(offsetof(QIVEN_FIELD_ATTRIB, cbField) == 12);
static_assert(offsetof(QIVEN_FIELD_ATTRIB, ulEndian) == 16);
static_assert(offsetof(QIVEN_FIELD_ATTRIB, ulBasicMask) == 20);

static_assert(!kLP64 || sizeof(QIVEN_FIELD_PARSER) == 24);
static_assert(!kLP64 || offsetof(QIVEN_FIELD_PARSER, ulType) == 0);
static_assert(!kLP64 || offsetof(QIVEN_FIELD_PARSER, pfnRead) == 8);
static_assert(!kLP64 || offsetof(QIVEN_FIELD_PARSER, pfnWrite) == 16);

static_assert(sizeof(QIVEN_FIELD_ARRAY_MAP) == 8);
static_assert(offsetof(QIVEN_FIELD_ARRAY_MAP, ulArrayPktId) == 0);
static_assert(offsetof(QIVEN_FIELD_ARRAY_MAP, ulCountPktId) == 4);

static_assert(!kLP64 || sizeof(QIVEN_SEND) == 1040);
static_assert(!kLP64 || offsetof(QIVEN_SEND, pnasInfo) == 0);
static_assert(!kLP64 || offsetof(QIVEN_SEND, nPktID) == 8);
static_assert(!kLP64 || offsetof(QIVEN_SEND, rgPktID) == 12);

static_assert(!kLP64 || sizeof(QIVEN_LOG) == 32);
static_assert(!kLP64 || offsetof(QIVEN_LOG, pfnLock) == 0);
static_assert(!kLP64 || offsetof(QIVEN_LOG, rgpfnLog) == 8);

static_assert(sizeof(QIVEN_NETIF) == 100);
static_assert(offsetof(QIVEN_NETIF, szIfName) == 0);
static_assert(offsetof(QIVEN_NETIF, rgMac) == 64);
static_assert(offsetof(QIVEN_NETIF, ulIP) == 72);
static_assert(offsetof(QIVEN_NETIF, ulMask) == 76);
static_assert(offsetof(QIVEN_NETIF, ulBroadCast) == 80);
static_assert(offsetof(QIVEN_NETIF, ulGateway) == 84);
static_assert(offsetof(QIVEN_NETIF, ulDNS) == 88);
static_assert(offsetof(QIVEN_NETIF, blStatic) == 92);
static_assert(offsetof(QIVEN_NETIF, blActive) == 96);

static_assert(!kLP64 || sizeof(QIVEN_CONN) == 40);
static_assert(!kLP64 || offsetof(QIVEN_CONN, szAddr) == 0);
static_assert(!kLP64 || offsetof(QIVEN_CONN, usPort) == 16);
static_assert(!kLP64 || offsetof(QIVEN_CONN, iTimeout) == 20);
static_assert(!kLP64 || offsetof(QIVEN_CONN, pfnCancel) == 24);
static_assert(!kLP64 || offsetof(QIVEN_CONN, pLog) == 32);

static_assert(!kLP64 || sizeof(QIVEN_RECV) == 32);
static_assert(!kLP64 || offsetof(QIVEN_RECV, pfnLock) == 0);
static_assert(!kLP64 || offsetof(QIVEN_RECV, pfnFilter) == 8);
static_assert(!kLP64 || offsetof(QIVEN_RECV, pfnHandler) == 16);
static_assert(!kLP64 || offsetof(QIVEN_RECV, pfnProgress) == 24);

static_assert(sizeof(MATRIX64) == 520);
static_assert(offsetof(MATRIX64, rows) == 0);
static_assert(offsetof(MATRIX64, cols) == 4);
static_assert(offsetof(MATRIX64, elem) == 8);

}  // namespace
