// The text codec: blocks of eight bytes times the key matrix, each product as two digits of six bits.
#include <limits.h>
#include <stdint.h>
#include <string.h>

#include "matrix/owned.h"

namespace {

constexpr int nBlock = 8;
constexpr size_t cbTextMax = 32760;  // the largest multiple of a block that 15 bits hold

// The low 16 bits of a value truncated toward zero. Foreign text or a key of the deployment's own can make
// any product; what no 64-bit integer holds, a value that is not a number included, becomes 0.
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

// Twelve bits, the low six first, the highest being the sign.
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
    const size_t cbText = strnlen(szText, cbTextMax + 1);
    if (cbText > cbTextMax) return -1;
    const int nRows = (static_cast<int>(cbText) + nBlock - 1) / nBlock;
    const int nElem = nRows * nBlock;
    if (nElem == 0) {
        *szOutput = '\0';
        return 0;
    }
    const qiven::matrix::Owned pText(MatrixAlloc(nRows, nBlock));
    const qiven::matrix::Owned pProduct(MatrixAlloc(nRows, nBlock));
    if (!pText || !pProduct) return -1;

    double *pdText = pText->elem;
    for (size_t i = 0; i < static_cast<size_t>(nElem); i++) {
        pdText[i] = i < cbText ? static_cast<unsigned char>(szText[i]) : 0;
    }
    // Fails only for a key that is missing or not 8 by 8; the product would be uninitialised memory then.
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
    if (cbEncoded > INT_MAX || nElem % nBlock != 0) return -1;
    const int nRows = static_cast<int>(nElem / nBlock);
    const qiven::matrix::Owned pDigits(MatrixAlloc(nRows, nBlock));
    const qiven::matrix::Owned pProduct(MatrixAlloc(nRows, nBlock));
    if (!pDigits || !pProduct) return -1;

    if (!FillFromDigits(pDigits->elem, szEncoded, nElem)) return -1;
    if (MatrixMultiply(pDigits.get(), pmti64, pProduct.get()) != 0) return -1;
    const double *pdProduct = pProduct->elem;
    for (size_t i = 0; i < nElem; i++) {
        // An inverse that is not exact may come back a little short of the byte.
        szOutput[i] = static_cast<char>(Truncate(static_cast<long double>(pdProduct[i]) + 0.01L));
    }
    szOutput[nElem] = '\0';
    return static_cast<int>(strlen(szOutput));
}
