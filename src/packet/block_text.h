// Copies of short texts, many bytes at a time. Most texts of a packet are too short for a call of the C
// library to pay off, and compilers turn a copy of at most 255 bytes into a slow string instruction.
//
// Contract, for cb bytes of text or a slot of cbSlot bytes:
//
//                   reads                                  writes
//   CopyExactly     cb bytes                               cb bytes
//   CopyText        cb bytes                               at most cb + 1 bytes: the text and a NUL
//   CopySlotText    whole blocks: up to                    as many bytes as it reads
//                   WholeBlocks(cbSlot) bytes
//
// The caller makes sure that these bytes can be read and written, and that source and target do not overlap.
#pragma once

#include <endian.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qiven::packet {

using Lanes = char __attribute__((vector_size(16)));
// Two vectors that are loaded, stored and examined together.
struct Block {
    Lanes low, high;
};

// For a word in little-endian order: a word whose lowest set bit is in the first byte that is 0, or 0 if no
// byte is.
template <class Word>
constexpr Word NulBytes(Word word) {
    constexpr auto kOnes = static_cast<Word>(static_cast<Word>(~Word{0}) / 0xFF);
    return static_cast<Word>((word - kOnes) & ~word & (kOnes << 7));
}

template <class Word>
constexpr bool HasNul(Word first, Word second) {
    return (NulBytes(first) | NulBytes(second)) != 0;
}

// The smaller byte of each pair of bytes: 0 if one of them is.
inline Lanes Smaller(Lanes first, Lanes second) {
    using UnsignedLanes = unsigned char __attribute__((vector_size(16)));
    const auto rgFirst = reinterpret_cast<UnsignedLanes>(first);
    const auto rgSecond = reinterpret_cast<UnsignedLanes>(second);
    return reinterpret_cast<Lanes>(rgFirst < rgSecond ? rgFirst : rgSecond);
}

// One bit for each byte that is 0; the lowest bit is that of the first byte.
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
    // One vector after the other: a block that is copied as a whole goes through the stack.
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

// Copies two units; the second may overlap the first. With kStopAtNul, copies nothing and returns false if
// there is a NUL in them.
template <class Unit, bool kStopAtNul>
inline bool CopyPair(unsigned char *pTo, const unsigned char *pFrom, size_t atSecond) {
    const auto first = Load<Unit>(pFrom);
    const auto second = Load<Unit>(pFrom + atSecond);
    if (kStopAtNul && HasNul(first, second)) return false;
    Store(pTo, first);
    Store(pTo + atSecond, second);
    return true;
}

// Copies pair by pair; the last pair overlaps the one before. With kStopAtNul, stops before the first pair
// that holds a NUL, and returns false.
template <bool kStopAtNul>
[[gnu::always_inline]] inline bool CopyExactly(unsigned char *pTo, const unsigned char *pFrom, size_t cb) {
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

// Copies a text that is known to hold a NUL. It is separate from CopyText, which needs no stack without it.
[[gnu::noinline]] inline size_t CopyUpToNul(unsigned char *pTo, const unsigned char *pFrom, size_t cb) {
    const size_t cbText = strnlen(reinterpret_cast<const char *>(pFrom), cb);
    memcpy(pTo, pFrom, cbText);
    pTo[cbText] = '\0';
    return cbText;
}

// Copies cb bytes of text, or up to a NUL among them, and a NUL behind them. Returns the length of the text.
// It is not inlined: the loop around it is faster if it has the registers for itself.
[[gnu::noinline]] inline size_t CopyText(unsigned char *pTo, const unsigned char *pFrom, size_t cb) {
    if (!CopyExactly<true>(pTo, pFrom, cb)) return CopyUpToNul(pTo, pFrom, cb);
    pTo[cb] = '\0';
    return cb;
}

// The number of bytes that CopySlotText may read and write.
constexpr size_t WholeBlocks(size_t cbSlot) {
    return (cbSlot + sizeof(Block) - 1) / sizeof(Block) * sizeof(Block);
}

// Copies the blocks of a slot up to the one that holds the NUL of its text. Returns the length of the text;
// cbSlot or more if the text does not end within the slot.
inline size_t CopySlotText(unsigned char *pTo, const unsigned char *pSlot, size_t cbSlot) {
    for (size_t at = 0; at < cbSlot; at += sizeof(Block)) {
        const auto block = Load<Block>(pSlot + at);
        Store(pTo + at, block);
        const uint32_t ulNul = NulBits(block);
        if (ulNul != 0) return at + static_cast<size_t>(std::countr_zero(ulNul));
    }
    return cbSlot;
}

}  // namespace qiven::packet
