// What key data of the codec has to fulfil, checked from the numbers alone.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <span>
#include <string>

// Every product of eight bytes with a column, whole and of twelve bits: the extremes are where each byte is 0
// or 255, so all 256 corners are tried.
inline void CheckProducts(std::span<const double> key) {
    for (size_t j = 0; j < 8; j++) {
        for (unsigned uCorner = 0; uCorner < 256; uCorner++) {
            double dSum = 0;
            for (size_t t = 0; t < 8; t++)
                dSum += (uCorner >> t & 1U) != 0 ? 255 * key[t * 8 + j] : 0;
            ASSERT_GE(dSum, -2048);
            ASSERT_LE(dSum, 2047);
        }
    }
}

inline void CheckKey(std::span<const double> key, std::span<const double> inverse) {
    ASSERT_EQ(64U, key.size());
    ASSERT_EQ(64U, inverse.size());
    for (size_t i = 0; i < 8; i++) {
        int nInRow = 0;
        int nInColumn = 0;
        for (size_t j = 0; j < 8; j++) {
            ASSERT_EQ(std::trunc(key[i * 8 + j]), key[i * 8 + j]);
            ASSERT_EQ(std::trunc(inverse[i * 8 + j]), inverse[i * 8 + j]);
            nInRow += key[i * 8 + j] != 0 ? 1 : 0;
            nInColumn += key[j * 8 + i] != 0 ? 1 : 0;
            double dSum = 0;
            for (size_t t = 0; t < 8; t++)
                dSum += key[i * 8 + t] * inverse[t * 8 + j];
            ASSERT_EQ(i == j ? 1 : 0, dSum);
        }
        ASSERT_LE(5, nInRow);
        ASSERT_LE(5, nInColumn);
    }
    CheckProducts(key);
}

inline void CheckAlphabet(const std::string &alphabet, std::span<const int> reverse) {
    ASSERT_EQ(64U, alphabet.size());
    ASSERT_EQ(128U, reverse.size());
    int nDigits = 0;
    for (int c = 0; c < 128; c++) {
        const bool blAllowed = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                               c == '+' || c == '-';
        const int iDigit = reverse[static_cast<size_t>(c)];
        ASSERT_EQ(blAllowed, iDigit >= 0) << c;
        nDigits += blAllowed ? 1 : 0;
        if (blAllowed) {
            ASSERT_EQ(c, alphabet.at(static_cast<size_t>(iDigit)));
        } else {
            ASSERT_EQ(-1, iDigit) << c;
        }
    }
    ASSERT_EQ(64, nDigits);
}
