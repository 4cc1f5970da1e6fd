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

inline bool HasNul(unsigned char bValue) {
    return bValue == 0;
}
inline bool HasNul(uint32_t ulValue) {
    return NulBytes(ulValue) != 0;
}
inline bool HasNul(uint64_t ullValue) {
    return NulBytes(ullValue) != 0;
}
inline bool HasNul(Lanes lanes) {
    const auto rgNul = reinterpret_cast<uint64_t __attribute__((vector_size(16)))>(lanes == 0);
    return (rgNul[0] | rgNul[1]) != 0;
}

inline bool HasNul(const Block &block) {
    // The smaller of two bytes is 0 when either is.
    using Bytes16 = unsigned char __attribute__((vector_size(16)));
    const auto rgLow = reinterpret_cast<Bytes16>(block.low);
    const auto rgHigh = reinterpret_cast<Bytes16>(block.high);
    return HasNul(reinterpret_cast<Lanes>(rgLow < rgHigh ? rgLow : rgHigh));
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

template <class Unit, bool kStopAtNul>
inline bool CopyUnit(unsigned char *pTo, const unsigned char *pFrom) {
    const auto unit = Load<Unit>(pFrom);
    if (kStopAtNul && HasNul(unit)) return false;
    Store(pTo, unit);
    return true;
}

// Copies unit by unit; the last one overlaps the one before, so that nothing outside the text is touched.
// Stops, if asked to, with false in front of the first unit that holds a NUL.
template <class Unit, bool kStopAtNul>
inline bool CopyUnits(unsigned char *pTo, const unsigned char *pFrom, size_t cb) {
    const size_t atLast = cb - sizeof(Unit);
    for (size_t at = 0; at < atLast; at += sizeof(Unit)) {
        if (!CopyUnit<Unit, kStopAtNul>(pTo + at, pFrom + at)) return false;
    }
    return CopyUnit<Unit, kStopAtNul>(pTo + atLast, pFrom + atLast);
}

template <bool kStopAtNul>
inline bool CopyBytes(unsigned char *pTo, const unsigned char *pFrom, size_t cb) {
    if (cb >= sizeof(Block)) return CopyUnits<Block, kStopAtNul>(pTo, pFrom, cb);
    if (cb >= sizeof(Lanes)) return CopyUnits<Lanes, kStopAtNul>(pTo, pFrom, cb);
    if (cb >= sizeof(uint64_t)) return CopyUnits<uint64_t, kStopAtNul>(pTo, pFrom, cb);
    if (cb >= sizeof(uint32_t)) return CopyUnits<uint32_t, kStopAtNul>(pTo, pFrom, cb);
    return cb == 0 || CopyUnits<unsigned char, kStopAtNul>(pTo, pFrom, cb);
}

// Copies a text of cb bytes up to a NUL among them, and terminates it. Returns its length.
inline size_t CopyText(unsigned char *pTo, const unsigned char *pFrom, size_t cb) {
    if (!CopyBytes<true>(pTo, pFrom, cb)) {
        cb = strnlen(reinterpret_cast<const char *>(pFrom), cb);
        memcpy(pTo, pFrom, cb);
    }
    pTo[cb] = '\0';
    return cb;
}

// Copies the text of a slot whose last byte is a NUL, and nothing else. Returns its length. Not inlined: the
// loops around it are faster with the registers for themselves.
[[gnu::noinline]] inline size_t CopySlot(unsigned char *pTo, const unsigned char *pSlot, size_t cbSlot) {
    size_t at = 0;
    while (at + sizeof(Block) <= cbSlot && CopyUnit<Block, true>(pTo + at, pSlot + at))
        at += sizeof(Block);
    for (; at + sizeof(uint64_t) <= cbSlot; at += sizeof(uint64_t)) {
        const auto ullWord = Load<uint64_t>(pSlot + at);
        const uint64_t ullNul = NulBytes(le64toh(ullWord));
        if (ullNul == 0) {
            Store(pTo + at, ullWord);
            continue;
        }
        // Less than a word is left: with a word in front of it, one that overlaps.
        const size_t cbText = at + static_cast<size_t>(std::countr_zero(ullNul)) / 8;
        if (at == 0)
            CopyBytes<false>(pTo, pSlot, cbText);
        else
            CopyUnit<uint64_t, false>(pTo + cbText - sizeof(uint64_t), pSlot + cbText - sizeof(uint64_t));
        return cbText;
    }
    for (; pSlot[at] != '\0'; ++at)
        pTo[at] = pSlot[at];
    return at;
}

}  // namespace qiven::packet
