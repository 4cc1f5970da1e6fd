// Memory that is counted against a bound, since strangers decide how much of it is wanted.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace qiven::watch {

struct Budget {
    uint64_t cbMax;
    uint64_t cbUsed = 0;
};

// What the C library adds to a block, about.
constexpr size_t kBlockOverhead = 16;

// Few sizes, an eighth apart, so that a block that was freed serves the next one that is a little larger: the
// memory of a full table would otherwise grow beyond the bound, in holes.
constexpr size_t BlockSize(size_t cb) {
    const size_t cbStep = std::max<size_t>(std::bit_floor(cb) / 8, 16);
    return (cb / cbStep + 1) * cbStep;
}

inline bool Fits(const Budget &budget, size_t cb) {
    return budget.cbUsed + BlockSize(cb) + kBlockOverhead <= budget.cbMax;
}

// Null if the budget or the machine has no more. Not cleared.
inline void *Allocate(Budget &budget, size_t cb) {
    if (!Fits(budget, cb)) return nullptr;
    void *p = malloc(BlockSize(cb));
    if (p != nullptr) budget.cbUsed += BlockSize(cb) + kBlockOverhead;
    return p;
}

inline void Free(Budget &budget, void *p, size_t cb) {
    if (p != nullptr) budget.cbUsed -= BlockSize(cb) + kBlockOverhead;
    free(p);
}

}  // namespace qiven::watch
