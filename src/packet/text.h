// Texts, many bytes at a time. Most of a packet's texts are shorter than a call of the C library is worth,
// and a copy whose length the compiler can bound would become a slow string instruction.
#pragma once

#include <endian.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace qiven::packet {

using Lanes = char __attribute__((vector_size(16)));
// Half a cache line; looked at as a whole.
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

template <class Unit, bool kStopAtNul>
inline bool CopyUnit(unsigned char *pTo, const unsigned char *pFrom) {
    if constexpr (std::is_same_v<Unit, Block>) {
        Lanes low;
        Lanes high;
        memcpy(&low, pFrom, sizeof low);
        memcpy(&high, pFrom + sizeof low, sizeof high);
        // The smaller of two unsigned bytes is 0 when either is.
        using Unsigned = unsigned char __attribute__((vector_size(16)));
        const auto a = reinterpret_cast<Unsigned>(low);
        const auto b = reinterpret_cast<Unsigned>(high);
        if (kStopAtNul && HasNul(reinterpret_cast<Lanes>(a < b ? a : b))) return false;
        memcpy(pTo, &low, sizeof low);
        memcpy(pTo + sizeof low, &high, sizeof high);
    } else {
        Unit unit;
        memcpy(&unit, pFrom, sizeof unit);
        if (kStopAtNul && HasNul(unit)) return false;
        memcpy(pTo, &unit, sizeof unit);
    }
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

// Copies a text of cb bytes up to a NUL among them, and terminates it.
inline void CopyText(unsigned char *pTo, const unsigned char *pFrom, size_t cb) {
    if (CopyBytes<true>(pTo, pFrom, cb) || memccpy(pTo, pFrom, '\0', cb) == nullptr) pTo[cb] = '\0';
}

// The length of the text in a slot; cbSlot when it has no NUL.
inline size_t TextLength(const char *szSlot, size_t cbSlot) {
    size_t at = 0;
    for (uint64_t ullWord; at + sizeof ullWord <= cbSlot; at += sizeof ullWord) {
        memcpy(&ullWord, szSlot + at, sizeof ullWord);
        const uint64_t ullNul = NulBytes(le64toh(ullWord));
        if (ullNul != 0) return at + static_cast<size_t>(std::countr_zero(ullNul)) / 8;
    }
    while (at < cbSlot && szSlot[at] != '\0')
        ++at;
    return at;
}

}  // namespace qiven::packet
