// Memory that is counted against a bound, since strangers decide how much of it is wanted.
#pragma once

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

inline bool Fits(const Budget &budget, size_t cb) {
    return budget.cbUsed + cb + kBlockOverhead <= budget.cbMax;
}

// Null if the budget or the machine has no more. Not cleared.
inline void *Allocate(Budget &budget, size_t cb) {
    if (!Fits(budget, cb)) return nullptr;
    void *p = malloc(cb);
    if (p != nullptr) budget.cbUsed += cb + kBlockOverhead;
    return p;
}

inline void Free(Budget &budget, void *p, size_t cb) {
    if (p != nullptr) budget.cbUsed -= cb + kBlockOverhead;
    free(p);
}

}  // namespace qiven::watch
