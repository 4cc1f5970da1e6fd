#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <tuple>

#include "matrix/dense.h"

namespace {

// Outputs have exactly the documented size, so that the sanitizer detects a byte too many.
std::string Encode(const std::string &text, int iExpected) {
    const size_t cb = 2 * ((text.size() + 7) / 8 * 8);
    const std::unique_ptr<char[]> szOutput(new char[cb + 1]);
    EXPECT_EQ(iExpected, MatrixEncode(text.c_str(), szOutput.get()));
    if (iExpected < 0) return "";
    EXPECT_EQ(static_cast<size_t>(iExpected), strlen(szOutput.get()));
    return szOutput.get();
}

// The text, or "-1".
std::string Decode(const std::string &encoded) {
    const std::unique_ptr<char[]> szOutput(new char[encoded.size() / 2 + 1]);
    const int iResult = MatrixDecode(encoded.c_str(), szOutput.get());
    if (iResult < 0) return std::to_string(iResult);
    const std::string text = szOutput.get();
    EXPECT_EQ(text.size(), static_cast<size_t>(iResult));
    return text;
}

void RoundTrip(const std::string &text) {
    const std::string encoded = Encode(text, static_cast<int>(2 * ((text.size() + 7) / 8 * 8)));
    ASSERT_EQ(std::string::npos, encoded.find_first_not_of(mapd2c));
    ASSERT_EQ(text, Decode(encoded));
}

// Makes the codec use other matrices.
struct MatrixCodec : testing::Test {
    ~MatrixCodec() override {
        pmtr64 = reinterpret_cast<MATRIX *>(&mtrx64);
        pmti64 = reinterpret_cast<MATRIX *>(&mtri64);
    }
};

Dense Diagonal(double dValue) {
    Dense matrix = Filled(8, 8, 0);
    for (int i = 0; i < 64; i += 9)
        Elements(matrix.get())[i] = dValue;
    return matrix;
}

std::mt19937 g_random(4711);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts every time

std::string RandomText(size_t cb) {
    std::string text(cb, ' ');
    for (char &c : text)
        c = static_cast<char>(1 + g_random() % 255);
    return text;
}

TEST_F(MatrixCodec, BringsEveryLengthBack) {
    for (size_t cb = 0; cb <= 100; cb++)
        RoundTrip(RandomText(cb));
    RoundTrip(RandomText(32760));
}

TEST_F(MatrixCodec, RefusesTextsAboveTheLimitAndNull) {
    Encode(std::string(32761, 'x'), -1);
    char szOutput[64] = "untouched";
    EXPECT_EQ(-1, MatrixEncode(nullptr, szOutput));
    EXPECT_EQ(-1, MatrixEncode("text", nullptr));
    EXPECT_EQ(-1, MatrixDecode(nullptr, szOutput));
    EXPECT_EQ(-1, MatrixDecode("text", nullptr));
    EXPECT_STREQ("untouched", szOutput);
    EXPECT_EQ(0, MatrixDecode("", szOutput));
    EXPECT_STREQ("", szOutput);
}

TEST_F(MatrixCodec, DecodesWholeBlocksOfTheAlphabetOnly) {
    const std::string encoded = Encode("0123456789abcdef", 32);
    for (int c = 1; c < 256; c++) {
        std::string changed = encoded;
        changed[static_cast<size_t>(c % 32)] = static_cast<char>(c);
        EXPECT_EQ(strchr(mapd2c, c) != nullptr, Decode(changed) != "-1") << c;
    }
    for (size_t cb = 1; cb < 32; cb++)  // whole blocks of sixteen digits, of which the last may have one more
        EXPECT_EQ(cb / 2 == 8 ? "01234567" : "-1", Decode(encoded.substr(0, cb))) << cb;
}

// Two digits per product, the low one first, twelve bits with a sign; shown
// with a diagonal matrix as the key.
TEST_F(MatrixCodec, WritesTwelveBitsLowDigitFirst) {
    const std::tuple<double, unsigned char, unsigned> rgCases[] = {
        {-1, 1, 0xFFF},   {8, 255, 2040},    {-8, 255, 0x808},   {0.5, 3, 1},  // 1.5 goes toward zero
        {-0.5, 3, 0xFFF}, {256, 255, 0xF00}, {-0x1p300, 255, 0}, {NAN, 9, 0},
    };
    for (const auto &[dFactor, uc, uBits] : rgCases) {
        const Dense key = Diagonal(dFactor);
        pmtr64 = key.get();
        const std::string encoded = Encode(std::string(1, static_cast<char>(uc)), 16);
        EXPECT_EQ(mapd2c[uBits & 63U], encoded[0]) << dFactor;
        EXPECT_EQ(mapd2c[uBits >> 6U], encoded[1]) << dFactor;
    }
}

// An element of value v, seen through an inverse that multiplies by a factor.
TEST_F(MatrixCodec, DecodesTowardZeroAfterAddingAHundredth) {
    // The double 99.99 is slightly smaller than 99.99. Only a sum rounded to double would give 100.
    const int iHairline = std::numeric_limits<long double>::digits > 53 ? 99 : 100;
    const std::tuple<int, int, double> rgCases[] = {
        {100, 100, 0.99991}, {100, iHairline, 0.9999}, {100, 99, 0.99985}, {-1, 0, 1},        {-2, 0xFF, 1},
        {-2048, 1, 1},       {1000, 0xE8, 33},         {1, 0, 0x1p63},     {-1, 0, INFINITY}, {1, 0, NAN},
    };
    for (const auto &[iElement, iByte, dFactor] : rgCases) {
        const Dense inverse = Diagonal(dFactor);
        pmti64 = inverse.get();
        const auto uBits = static_cast<unsigned>(iElement) & 0xFFFU;
        std::string encoded(16, mapd2c[0]);
        encoded[0] = mapd2c[uBits & 63U];
        encoded[1] = mapd2c[uBits >> 6U];
        // An element that comes back as 0 ends the text before it starts.
        EXPECT_EQ(iByte == 0 ? "" : std::string(1, static_cast<char>(iByte)), Decode(encoded))
            << iElement << " * " << dFactor;
    }
}

TEST_F(MatrixCodec, RefusesAKeyThatDoesNotFit) {
    const std::string encoded = Encode("text", 16);
    const Dense small = Filled(7, 7, 1);
    const Dense wide = Filled(8, 9, 1);
    for (MATRIX *pKey : {static_cast<MATRIX *>(nullptr), small.get(), wide.get()}) {
        pmtr64 = pmti64 = pKey;
        Encode("text", -1);
        EXPECT_EQ("-1", Decode(encoded));
    }
}

}  // namespace
