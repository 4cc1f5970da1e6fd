// Arithmetic on dense matrices of doubles. The record declares one element and the others follow it, so
// elements are reached through a pointer to the first one, never by indexing the member.
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <functional>
#include <limits>

#include "base/heap.h"
#include "matrix/owned_matrix.h"

namespace {

// A count below 1, which no allocated matrix has, stands for no elements, not for a huge number.
size_t Count(int32_t n) {
    return n < 1 ? 0 : static_cast<size_t>(n);
}

bool SameSize(const MATRIX *A, const MATRIX *B) {
    return A->rows == B->rows && A->cols == B->cols;
}

template <class Operation>
int ElementWise(const MATRIX *A, const MATRIX *B, MATRIX *C, Operation operation) {
    if (A == nullptr || B == nullptr || C == nullptr) return -1;
    if (!SameSize(A, B) || !SameSize(A, C)) return -2;
    const double *pdA = A->elem;
    const double *pdB = B->elem;
    double *pdC = C->elem;
    std::transform(pdA, pdA + Count(A->rows) * Count(A->cols), pdB, pdC, operation);
    return 0;
}

// The smallest pivot that is accepted. The limit itself is 0.0001 in extended precision, exclusive. It lies
// between this double and the next smaller one, so for every double "above the limit" is the same as "at
// least this", also on machines where long double is not wider than double.
constexpr double kSmallestPivot = 0.0001;
static_assert(std::numeric_limits<long double>::digits <= std::numeric_limits<double>::digits ||
              (0.0001L < static_cast<long double>(kSmallestPivot) &&
               0.0001L > static_cast<long double>(0x1.a36e2eb1c432cp-14)));
static_assert(kSmallestPivot == 0x1.a36e2eb1c432dp-14);

// Memory of the elimination: n rows of 2n columns, and one row for exchanging two others.
struct Elimination {
    size_t n;
    double *pdWork;
    double *pdScratch;

    size_t Width() const { return 2 * n; }
    double *Row(size_t i) const { return pdWork + i * Width(); }
};

void FillWithIdentity(const Elimination &work, const MATRIX *A) {
    const double *pdA = A->elem;
    for (size_t i = 0; i < work.n; i++) {
        double *pdRow = work.Row(i);
        std::copy_n(pdA + i * work.n, work.n, pdRow);
        std::fill_n(pdRow + work.n, work.n, 0.0);
        pdRow[work.n + i] = 1.0;
    }
}

// The row, from k on, with the largest absolute value in column k; the first of several.
size_t FindPivot(const Elimination &work, size_t k) {
    size_t iPivot = k;
    for (size_t i = k + 1; i < work.n; i++) {
        if (fabs(work.Row(i)[k]) > fabs(work.Row(iPivot)[k])) iPivot = i;
    }
    return iPivot;
}

// Exchanges the columns from k on: those to the left of k hold zeros in both rows.
void ExchangeRows(const Elimination &work, size_t i, size_t k) {
    const size_t nTail = work.Width() - k;
    double *pdI = work.Row(i) + k;
    double *pdK = work.Row(k) + k;
    std::copy_n(pdI, nTail, work.pdScratch);
    std::copy_n(pdK, nTail, pdI);
    std::copy_n(work.pdScratch, nTail, pdK);
}

// Makes the pivot 1 and the rest of its column 0. It multiplies by the reciprocal and does not divide,
// because all peers must get the same bits.
void EliminateColumn(const Elimination &work, size_t k) {
    double *pdPivot = work.Row(k);
    const double dReciprocal = 1.0 / pdPivot[k];
    if (dReciprocal != 1.0) {
        for (size_t j = k; j < work.Width(); j++)
            pdPivot[j] *= dReciprocal;
    }
    for (size_t i = 0; i < work.n; i++) {
        double *pdRow = work.Row(i);
        const double dFactor = pdRow[k];
        if (i == k || dFactor == 0.0) continue;
        for (size_t j = k; j < work.Width(); j++)
            pdRow[j] -= dFactor * pdPivot[j];
    }
}

bool Eliminate(const Elimination &work) {
    for (size_t k = 0; k < work.n; k++) {
        const size_t iPivot = FindPivot(work, k);
        // Negated, so that a pivot that is not a number fails too.
        if (!(fabs(work.Row(iPivot)[k]) >= kSmallestPivot)) return false;
        if (iPivot != k) ExchangeRows(work, iPivot, k);
        EliminateColumn(work, k);
    }
    return true;
}

}  // namespace

MATRIX *MatrixAlloc(int rows, int cols) {
    if (rows < 1 || cols < 1) return nullptr;
    size_t cb = 0;
    if (__builtin_mul_overflow(static_cast<size_t>(rows), static_cast<size_t>(cols), &cb) ||
        __builtin_mul_overflow(cb, sizeof(double), &cb) ||
        __builtin_add_overflow(cb, offsetof(MATRIX, elem), &cb) || cb > static_cast<size_t>(PTRDIFF_MAX)) {
        return nullptr;
    }
    auto *pMatrix = static_cast<MATRIX *>(malloc(cb));
    if (pMatrix == nullptr) return nullptr;
    pMatrix->rows = rows;
    pMatrix->cols = cols;
    return pMatrix;
}

void MatrixFree(MATRIX *pMatrix) {
    free(pMatrix);
}

int MatrixAddition(const MATRIX *A, const MATRIX *B, MATRIX *C) {
    return ElementWise(A, B, C, std::plus<>());
}

int MatrixSubtraction(const MATRIX *A, const MATRIX *B, MATRIX *C) {
    return ElementWise(A, B, C, std::minus<>());
}

int MatrixTranspose(const MATRIX *A, MATRIX *B) {
    if (A == nullptr || B == nullptr || A->rows < 1) return -1;
    if (A->rows != A->cols || !SameSize(A, B)) return -2;
    const size_t n = Count(A->rows);
    const double *pdA = A->elem;
    double *pdB = B->elem;
    for (size_t i = 0; i < n; i++) {
        for (size_t j = 0; j < n; j++)
            pdB[i * n + j] = pdA[j * n + i];
    }
    return 0;
}

int MatrixMultiply(const MATRIX *A, const MATRIX *B, MATRIX *C) {
    if (A == nullptr || B == nullptr || C == nullptr) return -1;
    if (A->cols != B->rows || C->rows != A->rows || C->cols != B->cols) return -2;
    const size_t nInner = Count(A->cols);
    const size_t nCols = Count(B->cols);
    const double *pdA = A->elem;
    const double *pdB = B->elem;
    double *pdC = C->elem;
    for (size_t i = 0; i < Count(A->rows); i++) {
        for (size_t j = 0; j < nCols; j++) {
            double *pdSum = pdC + i * nCols + j;
            *pdSum = 0.0;
            for (size_t t = 0; t < nInner; t++)
                *pdSum += pdA[i * nInner + t] * pdB[t * nCols + j];
        }
    }
    return 0;
}

int MatrixInversion(const MATRIX *A, MATRIX *B) {
    if (A == nullptr || B == nullptr) return -1;
    if (A->rows != A->cols || !SameSize(A, B)) return -2;
    if (A->rows < 1 || A->rows > INT32_MAX / 2) return -3;
    const qiven::matrix::OwnedMatrix pWork(MatrixAlloc(A->rows, 2 * A->rows));
    if (!pWork) return -3;
    const size_t n = Count(A->rows);
    const qiven::base::HeapBlock<double> pScratch(static_cast<double *>(calloc(2 * n, sizeof(double))));
    if (!pScratch) return -3;

    const Elimination work{n, pWork->elem, pScratch.get()};
    FillWithIdentity(work, A);
    if (!Eliminate(work)) return -2;
    double *pdB = B->elem;
    for (size_t i = 0; i < n; i++)
        std::copy_n(work.Row(i) + n, n, pdB + i * n);
    return 0;
}
