// Draws new key data for the text codec and writes it as a source file, after checking it.
#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace {

constexpr size_t n = 8;
constexpr int nDense = 5;  // non-zero entries every row and column has at least, in K and in its inverse
constexpr int iInverseMax = 64;  // keeps the inverse printable in short; exactness would allow far more
constexpr int nSteps = 2000;     // far beyond what it takes to forget where the walk began

using Matrix = std::array<std::array<int, n>, n>;

struct KeyData {
    Matrix key{};
    Matrix inverse{};
    std::string alphabet;
};

constexpr std::string_view szUsage =
    "Usage: matrix-keygen > src/matrix/key_data.cpp\n"
    "\n"
    "Draws a key matrix, its inverse and an alphabet for the text codec (MatrixEncode,\n"
    "MatrixDecode) from the system's random numbers, checks them, and writes them to\n"
    "standard output as the source file of the library. Every library that is to read\n"
    "the encoded texts has to be built with the same file.\n"
    "\n"
    "  --help  show this text\n"
    "\n"
    "Exit status: 0 done, 2 wrong usage, 3 no random numbers, check or output failed.\n";

[[noreturn]] void Fail(const char *szWhat) {
    fprintf(stderr, "matrix-keygen: %s\n", szWhat);
    exit(3);
}

// Uniform in 0..nBound-1, nBound being at most 256.
size_t Random(size_t nBound) {
    while (true) {
        uint8_t uc = 0;
        const ssize_t cb = getrandom(&uc, 1, 0);
        if (cb < 0 && errno == EINTR) continue;
        if (cb != 1) Fail("the system gives no random numbers");
        if (uc < 256 / nBound * nBound) return uc % nBound;
    }
}

// Whether 12 signed bits hold the products with column j for all byte values: the largest has 255 where the
// entry is positive and 0 elsewhere, the smallest vice versa.
bool ColumnFits(const Matrix &key, size_t j) {
    int iLargest = 0;
    int iSmallest = 0;
    for (const auto &row : key)
        (row[j] > 0 ? iLargest : iSmallest) += 255 * row[j];
    return iLargest <= 2047 && iSmallest >= -2048;
}

bool IsDense(const Matrix &matrix) {
    for (size_t i = 0; i < n; i++) {
        int nInRow = 0;
        int nInColumn = 0;
        for (size_t j = 0; j < n; j++) {
            nInRow += matrix[i][j] != 0 ? 1 : 0;
            nInColumn += matrix[j][i] != 0 ? 1 : 0;
        }
        if (nInRow < nDense || nInColumn < nDense) return false;
    }
    return true;
}

bool IsSmall(const Matrix &matrix) {
    for (const auto &row : matrix) {
        for (const int i : row) {
            if (abs(i) > iInverseMax) return false;
        }
    }
    return true;
}

bool IsInverse(const Matrix &key, const Matrix &inverse) {
    for (size_t i = 0; i < n; i++) {
        for (size_t j = 0; j < n; j++) {
            int iSum = 0;
            for (size_t t = 0; t < n; t++)
                iSum += key[i][t] * inverse[t][j];
            if (iSum != (i == j ? 1 : 0)) return false;
        }
    }
    return true;
}

// Adds iSign times column iFrom of the key to column iTo, and does the opposite to the inverse's rows, so
// that the two stay inverse to each other and the determinant stays 1 or -1.
void Step(KeyData &data, size_t iFrom, size_t iTo, int iSign) {
    for (auto &row : data.key)
        row[iTo] += iSign * row[iFrom];
    for (size_t j = 0; j < n; j++)
        data.inverse[iFrom][j] -= iSign * data.inverse[iTo][j];
}

// A random walk from the identity over the integer matrices with an integer inverse, which undoes every step
// out of bounds. It continues after nSteps until both matrices are dense.
void DrawMatrices(KeyData &data) {
    constexpr int nStepsMax = 1000 * nSteps;
    for (size_t i = 0; i < n; i++)
        data.key[i][i] = data.inverse[i][i] = 1;
    for (int iStep = 0; iStep < nStepsMax; iStep++) {
        const size_t iTo = Random(n);
        const size_t iFrom = (iTo + 1 + Random(n - 1)) % n;
        const int iSign = Random(2) == 0 ? 1 : -1;
        Step(data, iFrom, iTo, iSign);
        if (!ColumnFits(data.key, iTo) || !IsSmall(data.inverse)) Step(data, iFrom, iTo, -iSign);
        if (iStep >= nSteps && IsDense(data.key) && IsDense(data.inverse)) return;
    }
    Fail("found no matrix that mixes well enough");
}

void DrawAlphabet(KeyData &data) {
    data.alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-";
    for (size_t i = 63; i > 0; i--)
        std::swap(data.alphabet[i], data.alphabet[Random(i + 1)]);
}

void Check(const KeyData &data) {
    for (size_t j = 0; j < n; j++) {
        if (!ColumnFits(data.key, j)) Fail("check failed: a product needs more than 12 bits");
    }
    if (!IsDense(data.key) || !IsDense(data.inverse)) Fail("check failed: a matrix is not dense");
    if (!IsSmall(data.inverse)) Fail("check failed: the inverse is too large");
    if (!IsInverse(data.key, data.inverse) || !IsInverse(data.inverse, data.key)) {
        Fail("check failed: the matrices are not inverse to each other");
    }
    std::array<bool, 128> rgblSeen{};
    for (const char c : data.alphabet) {
        if (std::exchange(rgblSeen.at(static_cast<size_t>(c)), true)) {
            Fail("check failed: a character is twice in the alphabet");
        }
    }
    if (data.alphabet.size() != 64) Fail("check failed: the alphabet does not have 64 characters");
}

void PrintMatrix(const char *szName, const Matrix &matrix) {
    printf("MATRIX64 %s = {%zu, %zu, {\n", szName, n, n);
    for (const auto &row : matrix) {
        printf("   ");
        for (const int i : row)
            printf(" %3d,", i);
        printf("\n");
    }
    printf("}};\n");
}

void PrintAlphabet(const std::string &alphabet) {
    printf("const char mapd2c[65] = \"%s\";\n", alphabet.c_str());
    printf("const signed char mapc2d[128] = {");
    for (int c = 0; c < 128; c++) {
        const size_t iDigit = c == 0 ? std::string::npos : alphabet.find(static_cast<char>(c));
        printf("%s%3d,", c % 16 == 0 ? "\n    " : " ",
               iDigit == std::string::npos ? -1 : static_cast<int>(iDigit));
    }
    printf("\n};\n");
}

void Print(const KeyData &data) {
    printf(
        "// Key data of the text codec: the key matrix, its inverse, and the alphabet. Created by\n"
        "//   matrix-keygen > src/matrix/key_data.cpp\n"
        "// from the system's random numbers. The generator has checked that the two matrices are exact "
        "inverses, "
        "that\n"
        "// products with bytes fit 12 signed bits, and that no row or column is sparse. Do not edit this "
        "file: "
        "to\n"
        "// change the data, create a new file for all peers that exchange encoded texts.\n"
        "#include <qiven/matrix.h>\n"
        "\n"
        "// clang-format off\n");
    PrintMatrix("mtrx64", data.key);
    PrintMatrix("mtri64", data.inverse);
    PrintAlphabet(data.alphabet);
    printf(
        "// clang-format on\n"
        "\n"
        "MATRIX *pmtr64 = reinterpret_cast<MATRIX *>(&mtrx64);\n"
        "MATRIX *pmti64 = reinterpret_cast<MATRIX *>(&mtri64);\n");
    if (fflush(stdout) != 0 || ferror(stdout) != 0) Fail("cannot write to standard output");
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(szUsage.data(), stdout);
        return fflush(stdout) == 0 ? 0 : 3;
    }
    if (argc > 1) {
        fprintf(stderr, "matrix-keygen: unexpected argument '%s'; see matrix-keygen --help\n", argv[1]);
        return 2;
    }
    KeyData data;
    DrawMatrices(data);
    DrawAlphabet(data);
    Check(data);
    Print(data);
    return 0;
}
