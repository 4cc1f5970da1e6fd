#include <array>
#include <climits>
#include <cmath>
#include <limits>
#include <random>
#include <tuple>
#include <utility>

#include "matrix/dense.h"

namespace {

constexpr double dMark = -77.25;  // marks results that must not change
constexpr double dInf = std::numeric_limits<double>::infinity();
constexpr double dNaN = std::numeric_limits<double>::quiet_NaN();

using V = std::vector<double>;

TEST(MatrixRecord, HoldsTheElementsAndRefusesCountsThatCannotBe) {
    EXPECT_EQ(520U, sizeof(MATRIX64));
    EXPECT_EQ(15U, Values(Filled(3, 5, 1.0)).size());  // the sanitizer detects a block that is too small
    for (const auto &[iRows, iCols] :
         {std::pair{0, 5}, {5, 0}, {-3, -3}, {INT_MAX, INT_MAX}, {1 << 30, 1 << 30}})
        EXPECT_EQ(nullptr, MatrixAlloc(iRows, iCols)) << iRows << " " << iCols;
    MatrixFree(nullptr);
}

TEST(MatrixSums, AddAndSubtractElementByElement) {
    const Dense a = Make({{1, -2, 0.5}, {1e300, 4, dInf}});
    const Dense b = Make({{10, 20, 0.25}, {1e300, -4, 1}});
    const Dense c = Filled(2, 3, dMark);
    EXPECT_EQ(0, MatrixSubtraction(a.get(), b.get(), c.get()));
    EXPECT_EQ((V{-9, -22, 0.25, 0, 8, dInf}), Values(c));
    EXPECT_EQ(0, MatrixAddition(a.get(), b.get(), b.get()));  // in place
    EXPECT_EQ((V{11, 18, 0.75, 2e300, 0, dInf}), Values(b));
}

TEST(MatrixProduct, SumsInOrderOfTheIndexWithoutFusing) {
    const double dOdd = 1 + 0x1p-30;
    const std::tuple<Rows, Rows, V> rgCases[] = {
        {{{1, 2, 3}, {4, 5, 6}}, {{1, 0}, {0, 1}, {3, -1}}, {10, -1, 22, -1}},
        // 1e16 swallows a 1 that comes after it, so another order gives another sum.
        {{{1e16, 1, -1e16, 1}}, {{1}, {1}, {1}, {1}}, {1}},
        // The square of 1 + 2^-30 is rounded before the sum; a fused step would leave 2^-60.
        {{{-1 - 0x1p-29, dOdd}}, {{1}, {dOdd}}, {0}},
    };
    for (const auto &[a, b, product] : rgCases) {
        const Dense c = Filled(static_cast<int>(a.size()), static_cast<int>(b[0].size()), dMark);
        EXPECT_EQ(0, MatrixMultiply(Make(a).get(), Make(b).get(), c.get()));
        EXPECT_EQ(product, Values(c));
    }
}

TEST(MatrixTransposed, MirrorsTheElements) {
    const Dense b = Filled(3, 3, dMark);
    EXPECT_EQ(0, MatrixTranspose(Make({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}).get(), b.get()));
    EXPECT_EQ((V{1, 4, 7, 2, 5, 8, 3, 6, 9}), Values(b));
    MATRIX none{0, 0, {dMark}};
    EXPECT_EQ(-1, MatrixTranspose(&none, &none));
}

// Null is checked before the dimensions.
TEST(MatrixArguments, OperationsRefuseWhatDoesNotFit) {
    using Three = int (*)(const MATRIX *, const MATRIX *, MATRIX *);
    const std::pair<Three, std::array<int, 6>> rgCases[] = {
        {MatrixAddition, {2, 3, 3, 2, 2, 3}},    {MatrixAddition, {2, 3, 2, 3, 3, 2}},
        {MatrixSubtraction, {2, 3, 3, 3, 2, 3}}, {MatrixSubtraction, {2, 3, 2, 3, 2, 2}},
        {MatrixMultiply, {2, 3, 2, 3, 2, 3}},    {MatrixMultiply, {2, 3, 3, 4, 2, 3}},
        {MatrixMultiply, {2, 3, 3, 4, 3, 4}}};
    for (const auto &[pfn, n] : rgCases) {
        const Dense a = Filled(n[0], n[1], 1);
        const Dense b = Filled(n[2], n[3], 1);
        const Dense c = Filled(n[4], n[5], dMark);
        EXPECT_EQ(-2, pfn(a.get(), b.get(), c.get()));
        EXPECT_EQ(-1, pfn(nullptr, b.get(), c.get()));
        EXPECT_EQ(-1, pfn(a.get(), nullptr, c.get()));
        EXPECT_EQ(-1, pfn(a.get(), b.get(), nullptr));
        EXPECT_EQ(V(static_cast<size_t>(n[4] * n[5]), dMark), Values(c));
    }
    for (auto *const pfn : {MatrixTranspose, MatrixInversion}) {
        const Dense small = Filled(2, 2, 1);
        const Dense big = Filled(3, 3, dMark);
        const Dense wide = Filled(2, 3, 1);
        for (const auto &[pFrom, pTo] :
             {std::pair{small.get(), big.get()}, {wide.get(), big.get()}, {small.get(), wide.get()}})
            EXPECT_EQ(-2, pfn(pFrom, pTo));
        EXPECT_EQ(-1, pfn(nullptr, big.get()));
        EXPECT_EQ(-1, pfn(wide.get(), nullptr));
        EXPECT_EQ(V(9, dMark), Values(big));
    }
}

TEST(MatrixInverse, HasTheExactBits) {
    const double dBelowOne = std::nextafter(1.0, 0.0);  // 49 * (1 / 49)
    const std::pair<Rows, V> rgCases[] = {
        {{{1, 0, 0}, {0, 0, 2}, {0, 4, 0}}, {1, 0, 0, 0, 0, 0.25, 0, 0.5, 0}},  // exchange at a later pivot
        {{{49, 49}, {0, 1}}, {1.0 / 49, -dBelowOne, 0, 1}},  // multiplies by the reciprocal
        // A tie keeps the earlier row; with the later one the second element would be -0x1.5555555555554p-2.
        {{{1, 1}, {1, 4}}, {0x1.5555555555555p+0, -1.0 / 3, -1.0 / 3, 1.0 / 3}},
        {{{0.0001}}, {1 / 0.0001}},
        {{{-0.0001}}, {-1 / 0.0001}},
    };
    for (const auto &[rows, inverse] : rgCases) {
        const Dense a = Make(rows);
        EXPECT_EQ(0, MatrixInversion(a.get(), a.get()));  // in place; the reference below is not
        EXPECT_EQ(inverse, Values(a));
    }
}

TEST(MatrixInverse, LeavesRowsAloneThatAreZeroInThePivotColumn) {
    const Dense a = Make({{1, dInf}, {0, 1}});
    EXPECT_EQ(0, MatrixInversion(a.get(), a.get()));
    EXPECT_EQ(0, Elements(a.get())[2]);  // 0 * infinity would have made it NaN
}

TEST(MatrixInverse, RefusesSingularMatrices) {
    for (const Rows &rows : {Rows{{-std::nextafter(0.0001, 0.0)}}, {{dNaN}}, {{1, 0}, {0, dNaN}}}) {
        const Dense a = Make(rows);
        const Dense b = Filled(a->rows, a->cols, dMark);
        EXPECT_EQ(-2, MatrixInversion(a.get(), b.get()));
        EXPECT_EQ(V(rows.size() * rows.size(), dMark), Values(b));
    }
}

TEST(MatrixInverse, WithoutRoomForTwiceTheColumnsIsOutOfMemory) {
    for (const int n : {0, -4, 1 << 30, INT_MAX}) {
        MATRIX header{n, n, {dMark}};
        EXPECT_EQ(-3, MatrixInversion(&header, &header)) << n;
    }
}

// The inverse times the matrix is the identity; if a row is the sum of the others, there is no inverse.
TEST(MatrixInverse, UndoesTheMatrix) {
    std::mt19937 random(20240607);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same matrices every time
    int nInverted = 0;
    for (int iMatrix = 0; iMatrix < 600; iMatrix++) {
        const size_t n = 2 + static_cast<size_t>(iMatrix) % 5;
        Rows rows(n, V(n));
        for (size_t i = 0; i < n * n; i++)
            rows[i / n][i % n] = static_cast<double>(random() % 7) - 3;
        const bool blSingular = iMatrix % 3 == 0;
        for (size_t i = 0; blSingular && i < n; i++) {
            rows[n - 1][i] = 0;
            for (size_t k = 0; k + 1 < n; k++)
                rows[n - 1][i] += rows[k][i];
        }
        const Dense a = Make(rows), b = Filled(a->rows, a->cols, dMark), c = Filled(a->rows, a->cols, dMark);
        const int iResult = MatrixInversion(a.get(), b.get());
        ASSERT_TRUE(blSingular ? iResult == -2 : iResult == 0 || iResult == -2);
        if (iResult != 0) continue;
        ++nInverted;
        ASSERT_EQ(0, MatrixMultiply(a.get(), b.get(), c.get()));
        for (size_t i = 0; i < n * n; i++)
            ASSERT_NEAR(i % (n + 1) == 0 ? 1 : 0, Elements(c.get())[i], 1e-9);
    }
    EXPECT_LT(350, nInverted);  // of 400
}

}  // namespace
