// Any bytes as encoded text and as text to encode, compared with integer arithmetic.
#include <qiven/matrix.h>

#include <cstring>
#include <memory>

#include "fuzz.h"

namespace {

using fuzz::Require;

constexpr size_t kBlock = 8;
constexpr size_t kTextMax = 32760;

long long Times(const long long *rgRow, const MATRIX64 &key, size_t iColumn) {
    long long llSum = 0;
    for (size_t i = 0; i < kBlock; ++i)
        llSum += rgRow[i] * static_cast<long long>(key.elem[i * kBlock + iColumn]);
    return llSum;
}

std::string SlowEncode(std::string text) {
    text.resize((text.size() + kBlock - 1) / kBlock * kBlock);
    std::string encoded;
    for (size_t i = 0; i < text.size(); ++i) {
        long long rgRow[kBlock];
        for (size_t j = 0; j < kBlock; ++j)
            rgRow[j] = static_cast<unsigned char>(text[i / kBlock * kBlock + j]);
        const long long llValue = Times(rgRow, mtrx64, i % kBlock);
        Require(llValue >= -2048 && llValue <= 2047, "every product has twelve bits");
        encoded += mapd2c[llValue & 63];
        encoded += mapd2c[llValue >> 6 & 63];
    }
    return encoded;
}

// False if a character is not a digit.
bool SlowDecode(const std::string &encoded, std::string &decoded) {
    std::string digits;
    for (const char c : encoded.substr(0, encoded.size() / 2 * 2)) {
        const char *pDigit = static_cast<const char *>(memchr(mapd2c, c, 64));
        if (pDigit == nullptr) return false;
        digits += static_cast<char>(pDigit - mapd2c);
    }
    for (size_t i = 0; i < digits.size() / 2; ++i) {
        long long rgRow[kBlock];
        for (size_t j = 0; j < kBlock; ++j) {
            const size_t iPair = 2 * (i / kBlock * kBlock + j);
            rgRow[j] = digits[iPair] + 64 * digits[iPair + 1];
            if (rgRow[j] > 2047) rgRow[j] -= 4096;
        }
        const long long llValue = Times(rgRow, mtri64, i % kBlock);
        // A hundredth is added before truncation, which lifts whole numbers below zero by one.
        decoded += static_cast<char>(llValue < 0 ? llValue + 1 : llValue);
    }
    return true;
}

// Decodes into memory of exactly the documented size; -1 leaves it unchanged.
int Decode(const std::string &encoded, std::string &decoded) {
    const size_t cbOutput = encoded.size() / 2 + 1;
    const std::unique_ptr<char, decltype(&free)> output(static_cast<char *>(malloc(cbOutput)), free);
    memset(output.get(), '#', cbOutput);
    const int iResult = MatrixDecode(encoded.c_str(), output.get());
    decoded.assign(output.get(), cbOutput);
    Require(iResult >= 0 || decoded == std::string(cbOutput, '#'), "a refusal leaves the output alone");
    return iResult;
}

std::string Encode(const std::string &text) {
    const size_t cbOutput = 2 * ((text.size() + kBlock - 1) / kBlock * kBlock) + 1;
    const std::unique_ptr<char, decltype(&free)> output(static_cast<char *>(malloc(cbOutput)), free);
    memset(output.get(), '#', cbOutput);
    const int iResult = MatrixEncode(text.c_str(), output.get());
    const std::string all(output.get(), cbOutput);
    if (text.size() > kTextMax) {
        Require(iResult == -1 && all == std::string(cbOutput, '#'), "a text that is too long is refused");
        return "";
    }
    Require(iResult == static_cast<int>(cbOutput) - 1 && all.back() == '\0', "an encoding has its length");
    return all.substr(0, cbOutput - 1);
}

void RequireComesBack(const std::string &text) {
    const std::string encoded = Encode(text);
    if (text.size() > kTextMax) return;
    Require(encoded == SlowEncode(text), "a text is encoded as in whole numbers");
    std::string decoded;
    Require(Decode(encoded, decoded) == static_cast<int>(text.size()), "a text keeps its length");
    Require(decoded.c_str() == text, "a text comes back");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const std::string input(fuzz::AsText(pData, cbData).substr(0, fuzz::AsText(pData, cbData).find('\0')));
    RequireComesBack(input);
    std::string expected, decoded;
    const bool blBlocks = input.size() > 1 && input.size() / 2 % kBlock == 0 && SlowDecode(input, expected);
    const int iResult = Decode(input, decoded);
    if (input.empty()) {
        Require(iResult == 0 && decoded[0] == '\0', "nothing decodes to nothing");
    } else if (!blBlocks) {
        Require(iResult == -1, "what is no encoding is refused");
    } else {
        Require(decoded == expected + '\0', "an encoding is decoded as in whole numbers");
        Require(iResult == static_cast<int>(strlen(expected.c_str())), "the result is the text's length");
        RequireComesBack(expected.c_str());
    }
    return 0;
}
