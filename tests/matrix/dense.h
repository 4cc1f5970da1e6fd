// Matrices for tests, from nested lists, and the elements of one as a vector.
#pragma once

#include <qiven/matrix.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

using Rows = std::vector<std::vector<double>>;

struct FreeDense {
    void operator()(MATRIX *pMatrix) const { MatrixFree(pMatrix); }
};
using Dense = std::unique_ptr<MATRIX, FreeDense>;

// Through a pointer, since the record declares one element only.
inline double *Elements(MATRIX *pMatrix) {
    return pMatrix->elem;
}

inline std::vector<double> Values(const Dense &matrix) {
    const double *pd = Elements(matrix.get());
    return {pd, pd + matrix->rows * matrix->cols};
}

inline Dense Filled(int iRows, int iCols, double dValue) {
    Dense matrix(MatrixAlloc(iRows, iCols));
    std::fill_n(Elements(matrix.get()), iRows * iCols, dValue);
    return matrix;
}

inline Dense Make(const Rows &rows) {
    Dense matrix(MatrixAlloc(static_cast<int>(rows.size()), static_cast<int>(rows[0].size())));
    double *pd = Elements(matrix.get());
    for (const auto &row : rows)
        pd = std::copy(row.begin(), row.end(), pd);
    return matrix;
}
