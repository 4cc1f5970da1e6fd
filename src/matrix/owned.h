// A matrix that is freed with its scope.
#pragma once

#include <qiven/matrix.h>

#include <memory>

namespace qiven::matrix {

struct Release {
    void operator()(MATRIX *pMatrix) const { MatrixFree(pMatrix); }
};
using Owned = std::unique_ptr<MATRIX, Release>;

}  // namespace qiven::matrix
