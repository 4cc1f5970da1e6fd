// The conditions for key data of the codec, checked from the numbers alone.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <span>
#include <string>

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
    // Every product of eight bytes with a column fits twelve bits: the extremes
    // are where each byte is 0 or 255.
    for (size_t j = 0; j < 8; j++) {
        double dLow = 0;
        double dHigh = 0;
        for (size_t t = 0; t < 8; t++)
            (key[t * 8 + j] < 0 ? dLow : dHigh) += 255 * key[t * 8 + j];
        ASSERT_LE(-2048, dLow);
        ASSERT_GE(2047, dHigh);
    }
}

inline void CheckAlphabet(const std::string &alphabet, std::span<const int> reverse) {
    ASSERT_EQ(64U, alphabet.size());
    ASSERT_EQ(128U, reverse.size());
    for (int c = 0; c < 128; c++) {
        const bool blAllowed = isalnum(c) != 0 || c == '+' || c == '-';
        const size_t iDigit = alphabet.find(static_cast<char>(c));
        ASSERT_EQ(blAllowed, iDigit != std::string::npos) << c;
        ASSERT_EQ(blAllowed ? static_cast<int>(iDigit) : -1, reverse[static_cast<size_t>(c)]) << c;
    }
}
