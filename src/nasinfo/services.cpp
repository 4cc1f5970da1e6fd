// The service bitmaps of the host record.
#include <qiven/nasinfo.h>

#include "base/message.h"

namespace {

using qiven::base::Where;

constexpr char kModule[] = "nasinfo";

// The two words of one bitmap, services 0 to 63 first.
using Bitmap = uint64_t nasinfo::*const[2];
constexpr Bitmap kSupported{&nasinfo::ullServSupp0, &nasinfo::ullServSupp1};
constexpr Bitmap kRunning{&nasinfo::ullServRun0, &nasinfo::ullServRun1};

bool CheckRecord(const QIVEN_LOG *pLog, Where where, const nasinfo *pnasInfo) {
    return qiven::base::Check(pLog, where, pnasInfo != nullptr, "((void *)0) != pnasInfo");
}

bool CheckFlag(const QIVEN_LOG *pLog, Where where, const nasinfo *pnasInfo, unsigned int id) {
    return CheckRecord(pLog, where, pnasInfo) &&
           qiven::base::Check(pLog, where, QIVEN_SERVICE_MAX > id, "QIVEN_SERVICE_MAX > id");
}

int Clear(const QIVEN_LOG *pLog, Where where, nasinfo *pnasInfo, const Bitmap &bitmap) {
    if (!CheckRecord(pLog, where, pnasInfo)) return -1;
    for (const auto pWord : bitmap)
        pnasInfo->*pWord = 0;
    return 0;
}

int Set(const QIVEN_LOG *pLog, Where where, nasinfo *pnasInfo, unsigned int id, const Bitmap &bitmap) {
    if (!CheckFlag(pLog, where, pnasInfo, id)) return -1;
    pnasInfo->*bitmap[id / 64] |= uint64_t{1} << (id % 64);
    return 0;
}

int Get(const QIVEN_LOG *pLog, Where where, const nasinfo *pnasInfo, unsigned int id, const Bitmap &bitmap) {
    if (!CheckFlag(pLog, where, pnasInfo, id)) return -1;
    return static_cast<int>(pnasInfo->*bitmap[id / 64] >> (id % 64) & 1);
}

}  // namespace

int QIVENNasinfoServSuppClear(const QIVEN_LOG *pLog, nasinfo *pnasInfo) {
    return Clear(pLog, kModule, pnasInfo, kSupported);
}

int QIVENNasinfoServSuppSet(const QIVEN_LOG *pLog, nasinfo *pnasInfo, unsigned int id) {
    return Set(pLog, kModule, pnasInfo, id, kSupported);
}

int QIVENNasinfoServSuppGet(const QIVEN_LOG *pLog, const nasinfo *pnasInfo, unsigned int id) {
    return Get(pLog, kModule, pnasInfo, id, kSupported);
}

int QIVENNasinfoServRunClear(const QIVEN_LOG *pLog, nasinfo *pnasInfo) {
    return Clear(pLog, kModule, pnasInfo, kRunning);
}

int QIVENNasinfoServRunSet(const QIVEN_LOG *pLog, nasinfo *pnasInfo, unsigned int id) {
    return Set(pLog, kModule, pnasInfo, id, kRunning);
}

int QIVENNasinfoServRunGet(const QIVEN_LOG *pLog, const nasinfo *pnasInfo, unsigned int id) {
    return Get(pLog, kModule, pnasInfo, id, kRunning);
}
