#include "known.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace qiven::watch {

namespace {

KnownSet &SetOf(const KnownDatagrams &known, uint64_t ullDatagram) {
    return known.rg[ullDatagram & (known.n - 1)];
}

}  // namespace

void Resize(KnownDatagrams &known, Budget &budget, size_t n) {
    auto *rg = static_cast<KnownSet *>(Allocate(budget, n * sizeof(KnownSet)));
    if (rg == nullptr) return;
    FreeKnown(known, budget);
    known = {rg, n};
    Forget(known);
}

void FreeKnown(KnownDatagrams &known, Budget &budget) {
    Free(budget, known.rg, known.n * sizeof(KnownSet));
    known = {};
}

void Learn(KnownDatagrams &known, uint64_t ullDatagram, uint32_t ulHost) {
    if (ullDatagram == 0 || known.n == 0) return;
    KnownSet &set = SetOf(known, ullDatagram);
    Known *pWay = std::find_if(std::begin(set.rg), std::end(set.rg), [ullDatagram](const Known &way) {
        return way.ullDatagram == ullDatagram || way.ulHost == 0;
    });
    if (pWay == std::end(set.rg)) pWay = &set.rg[ullDatagram >> 62];
    *pWay = {ullDatagram, ulHost};
}

uint32_t HostOf(const KnownDatagrams &known, uint64_t ullDatagram) {
    if (known.n == 0) return 0;
    for (const Known &way : SetOf(known, ullDatagram).rg) {
        if (way.ullDatagram == ullDatagram) return way.ulHost;
    }
    return 0;
}

void Forget(KnownDatagrams &known) {
    if (known.n > 0) memset(known.rg, 0, known.n * sizeof(KnownSet));
}

}  // namespace qiven::watch
