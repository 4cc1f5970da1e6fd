// Datagrams that were filed, by their hash: most answers are the same bytes again. It only points to where
// the same may be found, so an entry may be stale, and is overwritten when there is no space.
#pragma once

#include <cstddef>
#include <cstdint>

#include "memory.h"

namespace qiven::watch {

struct Known {
    uint64_t ullDatagram;
    uint32_t ulHost;
};
constexpr size_t kKnownWays = 4;
struct KnownSet {
    Known rg[kKnownWays];
};

struct KnownDatagrams {
    KnownSet *rg = nullptr;
    size_t n = 0;  // a power of two, or 0
};

// Forgets everything; stays as it is without memory.
void Resize(KnownDatagrams &known, Budget &budget, size_t n);
void FreeKnown(KnownDatagrams &known, Budget &budget);

// The hash 0 stands for none.
void Learn(KnownDatagrams &known, uint64_t ullDatagram, uint32_t ulHost);
// Number of the host that it may be of; 0: not known.
uint32_t HostOf(const KnownDatagrams &known, uint64_t ullDatagram);
// When the same bytes may mean something else.
void Forget(KnownDatagrams &known);

}  // namespace qiven::watch
