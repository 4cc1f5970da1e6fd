// Texts, many bytes at a time. Most of a packet's texts are shorter than a call of the C library is worth,
// and a copy whose length the compiler can bound would become a slow string instruction.
#pragma once

#include <endian.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qiven::packet {

using Lanes = char __attribute__((vector_size(16)));
// Two of them, looked at as one.
struct Block {
    Lanes low, high;
};

// A word whose lowest set bit is in its first byte that is 0 (of a word that was little-endian), or 0.
template <class Word>
constexpr Word NulBytes(Word word) {
    constexpr auto kOnes = static_cast<Word>(static_cast<Word>(~Word{0}) / 0xFF);
    return static_cast<Word>((word - kOnes) & ~word & (kOnes << 7));
}

template <class Word>
constexpr bool HasNul(Word first, Word second) {
    return (NulBytes(first) | NulBytes(second)) != 0;
}

// Of each two bytes the smaller one, which is 0 when either is.
inline Lanes Smaller(Lanes first, Lanes second) {
    using Bytes16 = unsigned char __attribute__((vector_size(16)));
    const auto rgFirst = reinterpret_cast<Bytes16>(first);
    const auto rgSecond = reinterpret_cast<Bytes16>(second);
    return reinterpret_cast<Lanes>(rgFirst < rgSecond ? rgFirst : rgSecond);
}

// One bit for every byte that is 0, the first byte's lowest.
inline uint32_t NulBits(Lanes lanes) {
    const auto rgNul = lanes == 0;
#ifdef __SSE2__
    return static_cast<uint32_t>(__builtin_ia32_pmovmskb128(reinterpret_cast<Lanes>(rgNul)));
#else
    uint32_t ulBits = 0;
    for (unsigned i = 0; i < sizeof lanes; ++i)
        ulBits |= (rgNul[i] & 1U) << i;
    return ulBits;
#endif
}
inline uint32_t NulBits(const Block &block) {
    return NulBits(block.low) | NulBits(block.high) << sizeof(Lanes);
}

inline bool HasNul(Lanes first, Lanes second) {
    return NulBits(Smaller(first, second)) != 0;
}
inline bool HasNul(const Block &first, const Block &second) {
    return HasNul(Smaller(first.low, first.high), Smaller(second.low, second.high));
}

template <class Unit>
inline Unit Load(const void *pFrom) {
    Unit unit;
    memcpy(&unit, pFrom, sizeof unit);
    return unit;
}
template <>
inline Block Load<Block>(const void *pFrom) {
    // One after the other: copied as a whole, a block would go by way of the stack.
    return {Load<Lanes>(pFrom), Load<Lanes>(static_cast<const unsigned char *>(pFrom) + sizeof(Lanes))};
}

template <class Unit>
inline void Store(void *pTo, const Unit &unit) {
    memcpy(pTo, &unit, sizeof unit);
}
template <>
inline void Store<Block>(void *pTo, const Block &block) {
    Store(pTo, block.low);
    Store(static_cast<unsigned char *>(pTo) + sizeof(Lanes), block.high);
}

// Copies two units, of which the second one may overlap the first. Copies nothing, if asked to, when there is
// a NUL in them, and answers false.
template <class Unit, bool kStopAtNul>
inline bool CopyPair(unsigned char *pTo, const unsigned char *pFrom, size_t atSecond) {
    const auto first = Load<Unit>(pFrom);
    const auto second = Load<Unit>(pFrom + atSecond);
    if (kStopAtNul && HasNul(first, second)) return false;
    Store(pTo, first);
    Store(pTo + atSecond, second);
    return true;
}

// Copies pair by pair; the last one overlaps the one before, so that nothing outside the text is touched.
// Stops, if asked to, with false in front of the first pair that holds a NUL.
template <bool kStopAtNul>
[[gnu::always_inline]] inline bool CopyBytes(unsigned char *pTo, const unsigned char *pFrom, size_t cb) {
    for (; cb > 2 * sizeof(Block); cb -= 2 * sizeof(Block)) {
        if (!CopyPair<Block, kStopAtNul>(pTo, pFrom, sizeof(Block))) return false;
        pTo += 2 * sizeof(Block);
        pFrom += 2 * sizeof(Block);
    }
    if (cb >= sizeof(Block)) return CopyPair<Block, kStopAtNul>(pTo, pFrom, cb - sizeof(Block));
    if (cb >= sizeof(Lanes)) return CopyPair<Lanes, kStopAtNul>(pTo, pFrom, cb - sizeof(Lanes));
    if (cb >= sizeof(uint64_t)) return CopyPair<uint64_t, kStopAtNul>(pTo, pFrom, cb - sizeof(uint64_t));
    if (cb >= sizeof(uint32_t)) return CopyPair<uint32_t, kStopAtNul>(pTo, pFrom, cb - sizeof(uint32_t));
    if (cb >= sizeof(uint16_t)) return CopyPair<uint16_t, kStopAtNul>(pTo, pFrom, cb - sizeof(uint16_t));
    return cb == 0 || CopyPair<unsigned char, kStopAtNul>(pTo, pFrom, 0);
}

// Copies a text of which it is known that a NUL is in it. Apart from CopyText, which needs no stack without
// it.
[[gnu::noinline]] inline size_t CopyUpToNul(unsigned char *pTo, const unsigned char *pFrom, size_t cb) {
    const size_t cbText = strnlen(reinterpret_cast<const char *>(pFrom), cb);
    memcpy(pTo, pFrom, cbText);
    pTo[cbText] = '\0';
    return cbText;
}

// Copies a text of cb bytes up to a NUL among them, and terminates it. Returns its length. Not inlined: the
// loop around it is faster with the registers for itself.
[[gnu::noinline]] inline size_t CopyText(unsigned char *pTo, const unsigned char *pFrom, size_t cb) {
    if (!CopyBytes<true>(pTo, pFrom, cb)) return CopyUpToNul(pTo, pFrom, cb);
    pTo[cb] = '\0';
    return cb;
}

// How far CopySlot reads in a slot and writes in its place.
constexpr size_t WholeBlocks(size_t cbSlot) {
    return (cbSlot + sizeof(Block) - 1) / sizeof(Block) * sizeof(Block);
}

// Copies the text of a slot, and with its end whatever else is in the same block. Returns its length: cbSlot
// or more when it has no end.
inline size_t CopySlot(unsigned char *pTo, const unsigned char *pSlot, size_t cbSlot) {
    for (size_t at = 0; at < cbSlot; at += sizeof(Block)) {
        const auto block = Load<Block>(pSlot + at);
        Store(pTo + at, block);
        const uint32_t ulNul = NulBits(block);
        if (ulNul != 0) return at + static_cast<size_t>(std::countr_zero(ulNul));
    }
    return cbSlot;
}

}  // namespace qiven::packet
