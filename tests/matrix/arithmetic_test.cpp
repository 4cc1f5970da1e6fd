#include <climits>
#include <cmath>
#include <cstddef>
#include <limits>
#include <random>

#include "matrix/dense.h"

namespace {

constexpr double dMark = -77.25;  // what a result holds that nobody may write to
constexpr double dInf = std::numeric_limits<double>::infinity();
constexpr double dNaN = std::numeric_limits<double>::quiet_NaN();

using V = std::vector<double>;

TEST(MatrixRecord, IsTheCountsFollowedByTheElements) {
    EXPECT_EQ(8U, offsetof(MATRIX, elem));
    EXPECT_EQ(520U, sizeof(MATRIX64));
    EXPECT_EQ(offsetof(MATRIX, elem), offsetof(MATRIX64, elem));
    const Dense matrix(MatrixAlloc(3, 5));
    ASSERT_TRUE(matrix);
    EXPECT_EQ(3, matrix->rows);
    EXPECT_EQ(5, matrix->cols);
    std::fill_n(Elements(matrix.get()), 15, 1.0);  // a block too small is found by the sanitizer
}

TEST(MatrixRecord, AllocRefusesCountsBelowOneAndSizesThatDoNotFit) {
    const int rgrgiCounts[][2] = {{0, 5},
                                  {5, 0},
                                  {-1, 5},
                                  {5, -1},
                                  {-3, -3},
                                  {INT_MIN, 1},
                                  {0, 0},
                                  {INT_MAX, INT_MAX},
                                  {1 << 30, 1 << 30},
                                  {1 << 30, INT_MAX}};
    for (const auto &[iRows, iCols] : rgrgiCounts) {
        EXPECT_EQ(nullptr, MatrixAlloc(iRows, iCols)) << iRows << " " << iCols;
    }
    MatrixFree(nullptr);
}

TEST(MatrixSums, AddAndSubtractElementByElement) {
    const Dense a = Make({{1, -2, 0.5}, {1e300, 4, dInf}});
    const Dense b = Make({{10, 20, 0.25}, {1e300, -4, 1}});
    const Dense c = Filled(2, 3, dMark);
    EXPECT_EQ(0, MatrixAddition(a.get(), b.get(), c.get()));
    EXPECT_EQ((V{11, 18, 0.75, 2e300, 0, dInf}), Values(c));
    EXPECT_EQ(0, MatrixSubtraction(a.get(), b.get(), c.get()));
    EXPECT_EQ((V{-9, -22, 0.25, 0, 8, dInf}), Values(c));

    EXPECT_EQ(0, MatrixAddition(a.get(), b.get(), b.get()));
    EXPECT_EQ((V{11, 18, 0.75, 2e300, 0, dInf}), Values(b));
    EXPECT_EQ(0, MatrixSubtraction(a.get(), a.get(), a.get()));
    EXPECT_EQ((V{0, 0, 0, 0, 0}), V(Elements(a.get()), Elements(a.get()) + 5));
}

TEST(MatrixProduct, SumsInOrderOfTheIndexWithoutFusing) {
    const Dense a = Make({{1, 2, 3}, {4, 5, 6}});
    const Dense b = Make({{1, 0, 2, -1}, {0, 1, 1, 0.5}, {3, -1, 0, 2}});
    const Dense c = Filled(2, 4, dMark);
    EXPECT_EQ(0, MatrixMultiply(a.get(), b.get(), c.get()));
    EXPECT_EQ((V{10, -1, 4, 6, 22, -1, 13, 10.5}), Values(c));

    // 1e16 swallows a 1 that comes after it, so another order gives another sum.
    const Dense row = Make({{1e16, 1, -1e16, 1}});
    const Dense column = Make({{1}, {1}, {1}, {1}});
    const Dense sum = Filled(1, 1, dMark);
    EXPECT_EQ(0, MatrixMultiply(row.get(), column.get(), sum.get()));
    EXPECT_EQ((V{1}), Values(sum));

    // The square of 1 + 2^-30 is rounded before the sum; a fused step would leave 2^-60.
    const double dOdd = 1 + 0x1p-30;
    const Dense left = Make({{-1 - 0x1p-29, dOdd}});
    const Dense right = Make({{1}, {dOdd}});
    EXPECT_EQ(0, MatrixMultiply(left.get(), right.get(), sum.get()));
    EXPECT_EQ((V{0}), Values(sum));
}

TEST(MatrixTransposed, MirrorsTheElements) {
    const Dense a = Make({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}});
    const Dense b = Filled(3, 3, dMark);
    EXPECT_EQ(0, MatrixTranspose(a.get(), b.get()));
    EXPECT_EQ((V{1, 4, 7, 2, 5, 8, 3, 6, 9}), Values(b));

    MATRIX none{0, 0, {dMark}};
    EXPECT_EQ(-1, MatrixTranspose(&none, &none));
}

using Two = int (*)(const MATRIX *, MATRIX *);
using Three = int (*)(const MATRIX *, const MATRIX *, MATRIX *);

TEST(MatrixArguments, OperationsOfThreeRefuseWhatDoesNotFit) {
    struct Case {
        Three pfn;
        int rgiSize[6];
    };
    const Case rgCases[] = {
        {MatrixAddition, {2, 3, 3, 2, 2, 3}},    {MatrixAddition, {2, 3, 2, 3, 3, 2}},
        {MatrixAddition, {2, 3, 2, 4, 2, 3}},    {MatrixSubtraction, {2, 3, 3, 3, 2, 3}},
        {MatrixSubtraction, {2, 3, 2, 3, 2, 2}}, {MatrixMultiply, {2, 3, 3, 4, 4, 2}},
        {MatrixMultiply, {2, 3, 2, 3, 2, 3}},    {MatrixMultiply, {2, 3, 3, 4, 2, 3}},
        {MatrixMultiply, {2, 3, 3, 4, 3, 4}},
    };
    for (const auto &[pfn, n] : rgCases) {
        const Dense a = Filled(n[0], n[1], 1);
        const Dense b = Filled(n[2], n[3], 1);
        const Dense c = Filled(n[4], n[5], dMark);
        const V before = Values(c);
        EXPECT_EQ(-2, pfn(a.get(), b.get(), c.get()));
        // Null is looked for before dimensions.
        EXPECT_EQ(-1, pfn(nullptr, b.get(), c.get()));
        EXPECT_EQ(-1, pfn(a.get(), nullptr, c.get()));
        EXPECT_EQ(-1, pfn(a.get(), b.get(), nullptr));
        EXPECT_EQ(before, Values(c));
    }
}

TEST(MatrixArguments, OperationsOfTwoRefuseWhatDoesNotFit) {
    for (const Two pfn : {Two{MatrixTranspose}, Two{MatrixInversion}}) {
        const int rgrgiSizes[][4] = {{2, 3, 2, 3}, {2, 3, 3, 2}, {3, 3, 2, 2}, {3, 3, 3, 2}, {3, 2, 3, 3}};
        for (const auto &n : rgrgiSizes) {
            const Dense a = Filled(n[0], n[1], 1);
            const Dense b = Filled(n[2], n[3], dMark);
            const V before = Values(b);
            EXPECT_EQ(-2, pfn(a.get(), b.get()));
            EXPECT_EQ(-1, pfn(nullptr, b.get()));
            EXPECT_EQ(-1, pfn(a.get(), nullptr));
            EXPECT_EQ(before, Values(b));
        }
    }
}

TEST(MatrixInverse, HasTheExactBits) {
    struct Case {
        const char *szWhat;
        Rows rows;
        V inverse;
    };
    const double dBelowOne = std::nextafter(1.0, 0.0);  // 49 * (1 / 49)
    const Case rgCases[] = {
        {"identity", {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {1, 0, 0, 0, 1, 0, 0, 0, 1}},
        {"exchange at the first pivot", {{0, 1}, {1, 0}}, {0, 1, 1, 0}},
        {"diagonal", {{2, 0}, {0, 4}}, {0.5, 0, 0, 0.25}},
        {"exchange at a later pivot", {{1, 0, 0}, {0, 0, 2}, {0, 4, 0}}, {1, 0, 0, 0, 0, 0.25, 0, 0.5, 0}},
        {"multiplies by the reciprocal", {{49, 49}, {0, 1}}, {1.0 / 49, -dBelowOne, 0, 1}},
        // With the later row as the pivot the second element would be -0x1.5555555555554p-2.
        {"a tie keeps the earlier row",
         {{1, 1}, {1, 4}},
         {0x1.5555555555555p+0, -1.0 / 3, -1.0 / 3, 1.0 / 3}},
        {"single", {{-8}}, {-0.125}},
        {"small pivot", {{0.0002, 0}, {0, 0.0002}}, {5000, 0, 0, 5000}},
        {"smallest pivot", {{0.0001}}, {1 / 0.0001}},
        {"negative smallest pivot", {{-0.0001}}, {-1 / 0.0001}},
    };
    for (const auto &[szWhat, rows, inverse] : rgCases) {
        const Dense a = Make(rows);
        const Dense b = Filled(a->rows, a->cols, dMark);
        EXPECT_EQ(0, MatrixInversion(a.get(), b.get())) << szWhat;
        EXPECT_EQ(inverse, Values(b)) << szWhat;
        EXPECT_EQ(0, MatrixInversion(a.get(), a.get())) << szWhat;
        EXPECT_EQ(inverse, Values(a)) << szWhat;
    }
}

TEST(MatrixInverse, LeavesRowsAloneThatAreZeroInThePivotColumn) {
    const Dense a = Make({{1, dInf}, {0, 1}});
    const Dense b = Filled(2, 2, dMark);
    EXPECT_EQ(0, MatrixInversion(a.get(), b.get()));
    EXPECT_EQ(0, Elements(b.get())[2]);  // 0 * infinity would have made it NaN
    EXPECT_EQ(1, Elements(b.get())[3]);
}

TEST(MatrixInverse, RefusesSingularMatrices) {
    const Rows rgRows[] = {
        {{0}},
        {{std::nextafter(0.0001, 0.0)}},
        {{-std::nextafter(0.0001, 0.0)}},
        {{dNaN}},
        {{0.00005, 0}, {0, 0.00005}},
        {{1, 2}, {1, 2}},
        {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}},
        {{1, 0, 0}, {0, dNaN, 0}, {0, 0, 1}},
        {{3, 1, 4, 1}, {5, 9, 2, 6}, {3, 1, 4, 1}, {2, 7, 1, 8}},
    };
    for (const Rows &rows : rgRows) {
        const Dense a = Make(rows);
        const Dense b = Filled(a->rows, a->cols, dMark);
        EXPECT_EQ(-2, MatrixInversion(a.get(), b.get())) << a->rows;
        EXPECT_EQ(V(rows.size() * rows.size(), dMark), Values(b));
    }
}

TEST(MatrixInverse, WithoutRoomForTwiceTheColumnsIsOutOfMemory) {
    for (const int n : {0, -4, (1 << 30) - 1, 1 << 30, INT_MAX}) {
        MATRIX header{n, n, {dMark}};
        EXPECT_EQ(-3, MatrixInversion(&header, &header)) << n;
        EXPECT_EQ(dMark, header.elem[0]);
    }
}

// The reference: determinants by expansion along the first row, the inverse as adjugate over determinant, in
// integers. Slow, and nothing in it is like the elimination.
using Integers = std::vector<std::vector<long>>;

Integers Minor(const Integers &m, size_t iRow, size_t iCol) {
    Integers minor;
    for (size_t i = 0; i < m.size(); i++) {
        if (i == iRow) continue;
        minor.push_back(m[i]);
        minor.back().erase(minor.back().begin() + static_cast<std::ptrdiff_t>(iCol));
    }
    return minor;
}

// NOLINTNEXTLINE(misc-no-recursion): depth is the size of the matrix.
long Determinant(const Integers &m) {
    if (m.empty()) return 1;
    long lSum = 0;
    for (size_t j = 0; j < m.size(); j++) {
        if (m[0][j] != 0) lSum += (j % 2 == 0 ? 1 : -1) * m[0][j] * Determinant(Minor(m, 0, j));
    }
    return lSum;
}

void CompareWithReference(const Integers &m) {
    const size_t n = m.size();
    Rows rows(n);
    for (size_t i = 0; i < n; i++)
        rows[i].assign(m[i].begin(), m[i].end());
    const Dense a = Make(rows);
    const Dense b = Filled(a->rows, a->cols, dMark);
    const long lDet = Determinant(m);
    ASSERT_EQ(lDet == 0 ? -2 : 0, MatrixInversion(a.get(), b.get()));
    for (size_t i = 0; i < n; i++) {
        for (size_t j = 0; j < n; j++) {
            const long lCofactor =
                ((i + j) % 2 == 0 ? 1 : -1) * (lDet == 0 ? 0 : Determinant(Minor(m, j, i)));
            const double dExpected =
                lDet == 0 ? dMark : static_cast<double>(lCofactor) / static_cast<double>(lDet);
            ASSERT_NEAR(dExpected, Elements(b.get())[i * n + j], 1e-9 * (1 + std::fabs(dExpected)));
        }
    }
    EXPECT_EQ(0, lDet == 0 ? 0 : MatrixInversion(a.get(), a.get()));
    EXPECT_EQ(lDet != 0, Values(a) == Values(b));  // in place or not, the same bits
}

// With these bounds on the entries every pivot of a regular integer matrix is above the limit: a pivot is a
// non-zero integer over the product of the earlier ones, each of which at most doubles the bound.
TEST(MatrixInverse, AgreesWithAdjugateOverDeterminant) {
    struct Case {
        size_t n;
        int iBound;
        int nMatrices;
    };
    std::mt19937 random(20240607);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same matrices every time
    for (const auto &[n, iBound, nMatrices] :
         {Case{1, 9, 50}, Case{2, 9, 1000}, Case{2, 1, 100}, Case{3, 9, 1000}, Case{3, 1, 300},
          Case{4, 9, 1000}, Case{5, 3, 200}, Case{6, 1, 60}}) {
        for (int iMatrix = 0; iMatrix < nMatrices; iMatrix++) {
            Integers m(n, std::vector<long>(n));
            for (auto &row : m) {
                for (long &l : row)
                    l = static_cast<long>(random() % (2U * static_cast<unsigned>(iBound) + 1)) - iBound;
            }
            CompareWithReference(m);
            if (testing::Test::HasFatalFailure()) return;
        }
    }
}

TEST(MatrixInverse, OfLargeMatricesTimesTheMatrixIsTheIdentity) {
    std::mt19937 random(99);  // NOLINT(cert-msc32-c,cert-msc51-cpp)
    std::uniform_real_distribution<double> entry(-1, 1);
    for (const int n : {7, 16, 33, 100}) {
        const Dense a = Filled(n, n, 0);
        std::generate_n(Elements(a.get()), n * n, [&] { return entry(random); });
        const Dense b = Filled(n, n, dMark);
        const Dense c = Filled(n, n, dMark);
        ASSERT_EQ(0, MatrixInversion(a.get(), b.get()));
        ASSERT_EQ(0, MatrixMultiply(a.get(), b.get(), c.get()));
        for (int i = 0; i < n * n; i++) {
            ASSERT_NEAR(i % (n + 1) == 0 ? 1 : 0, Elements(c.get())[i], 1e-9) << n;
        }
    }
}

}  // namespace
