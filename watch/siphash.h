// SipHash-1-3 (Aumasson and Bernstein), the variant for hash tables: strangers choose what is hashed, and
// must not be able to choose the hash.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qiven::watch {

struct HashKey {
    uint64_t ull0, ull1;
};

struct SipState {
    uint64_t a, b, c, d;

    void Round() {
        a += b;
        c += d;
        b = std::rotl(b, 13) ^ a;
        d = std::rotl(d, 16) ^ c;
        a = std::rotl(a, 32);
        c += b;
        a += d;
        b = std::rotl(b, 17) ^ c;
        d = std::rotl(d, 21) ^ a;
        c = std::rotl(c, 32);
    }
    void Take(uint64_t ull) {
        d ^= ull;
        Round();
        a ^= ull;
    }
};

// Equal on one machine only: words are taken as they lie in memory.
inline uint64_t SipHash(const HashKey &key, const void *p, size_t cb) {
    SipState state{key.ull0 ^ 0x736f6d6570736575, key.ull1 ^ 0x646f72616e646f6d,
                   key.ull0 ^ 0x6c7967656e657261, key.ull1 ^ 0x7465646279746573};
    const auto *pb = static_cast<const unsigned char *>(p);
    const uint64_t ullLength = static_cast<uint64_t>(cb) << 56;
    uint64_t ull;
    for (; cb >= sizeof ull; cb -= sizeof ull, pb += sizeof ull) {
        memcpy(&ull, pb, sizeof ull);
        state.Take(ull);
    }
    ull = 0;
    if (cb > 0) memcpy(&ull, pb, cb);
    state.Take(ull | ullLength);
    state.c ^= 0xff;
    for (int i = 0; i < 3; ++i)
        state.Round();
    return state.a ^ state.b ^ state.c ^ state.d;
}

}  // namespace qiven::watch
