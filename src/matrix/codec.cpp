// The text codec: blocks of eight bytes are multiplied by the key matrix, and each product becomes two digits
// of six bits.
#include <limits.h>
#include <stdint.h>
#include <string.h>

#include "matrix/owned_matrix.h"

namespace {

constexpr int kBlockSize = 8;       // the key has as many rows and columns
constexpr size_t kTextMax = 32760;  // the largest multiple of a block that 15 bits hold

// The low 16 bits of a value truncated toward zero. Hostile text, or a key of the program's own, can result
// in any product; a value that does not fit a 64-bit integer, or is not a number, becomes 0.
int16_t Truncate(long double ldValue) {
    constexpr long double ldLimit = 0x1p63L;
    if (!(ldValue > -ldLimit && ldValue < ldLimit)) return 0;
    return static_cast<int16_t>(static_cast<int64_t>(ldValue));
}

char Character(int iDigit) {
    return mapd2c[iDigit & 63];
}

// -1 for a character outside the alphabet.
int Digit(char cEncoded) {
    const auto uc = static_cast<unsigned char>(cEncoded);
    return uc < sizeof mapc2d ? mapc2d[uc] : -1;
}

// Reads elements of twelve bits, the low six first; the highest bit is the sign. False for a character
// outside the alphabet.
bool FillFromDigits(double *pdElem, const char *szEncoded, size_t nElem) {
    for (size_t i = 0; i < nElem; i++) {
        const int iLow = Digit(szEncoded[2 * i]);
        const int iHigh = Digit(szEncoded[2 * i + 1]);
        if (iLow < 0 || iHigh < 0) return false;
        const int iValue = iHigh * 64 + iLow;
        pdElem[i] = iValue < 2048 ? iValue : iValue - 4096;
    }
    return true;
}

}  // namespace

int MatrixEncode(const char *szText, char *szOutput) {
    if (szText == nullptr || szOutput == nullptr) return -1;
    const size_t cbText = strnlen(szText, kTextMax + 1);
    if (cbText > kTextMax) return -1;
    const int nRows = (static_cast<int>(cbText) + kBlockSize - 1) / kBlockSize;
    const int nElem = nRows * kBlockSize;
    if (nElem == 0) {
        *szOutput = '\0';
        return 0;
    }
    const qiven::matrix::OwnedMatrix pText(MatrixAlloc(nRows, kBlockSize));
    const qiven::matrix::OwnedMatrix pProduct(MatrixAlloc(nRows, kBlockSize));
    if (!pText || !pProduct) return -1;

    double *pdText = pText->elem;
    for (size_t i = 0; i < static_cast<size_t>(nElem); i++) {
        pdText[i] = i < cbText ? static_cast<unsigned char>(szText[i]) : 0;
    }
    // Fails if the key is missing or not 8 by 8. The product is uninitialised memory then.
    if (MatrixMultiply(pText.get(), pmtr64, pProduct.get()) != 0) return -1;
    const double *pdProduct = pProduct->elem;
    for (int i = 0; i < nElem; i++) {
        const int iValue = Truncate(pdProduct[i]);
        *szOutput++ = Character(iValue);
        *szOutput++ = Character(iValue >> 6);
    }
    *szOutput = '\0';
    return 2 * nElem;
}

int MatrixDecode(const char *szEncoded, char *szOutput) {
    if (szEncoded == nullptr || szOutput == nullptr) return -1;
    const size_t cbEncoded = strlen(szEncoded);
    if (cbEncoded == 0) {
        *szOutput = '\0';
        return 0;
    }
    const size_t nElem = cbEncoded / 2;
    if (cbEncoded > INT_MAX || nElem % kBlockSize != 0) return -1;
    const int nRows = static_cast<int>(nElem / kBlockSize);
    const qiven::matrix::OwnedMatrix pDigits(MatrixAlloc(nRows, kBlockSize));
    const qiven::matrix::OwnedMatrix pProduct(MatrixAlloc(nRows, kBlockSize));
    if (!pDigits || !pProduct) return -1;

    if (!FillFromDigits(pDigits->elem, szEncoded, nElem)) return -1;
    if (MatrixMultiply(pDigits.get(), pmti64, pProduct.get()) != 0) return -1;
    const double *pdProduct = pProduct->elem;
    for (size_t i = 0; i < nElem; i++) {
        // With an inverse that is not exact, the product can be a little smaller than the byte.
        szOutput[i] = static_cast<char>(Truncate(static_cast<long double>(pdProduct[i]) + 0.01L));
    }
    szOutput[nElem] = '\0';
    return static_cast<int>(strlen(szOutput));
}
