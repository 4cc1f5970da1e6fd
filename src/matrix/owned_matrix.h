// A matrix that is freed when its scope ends.
#pragma once

#include <qiven/matrix.h>

#include <memory>

namespace qiven::matrix {

struct FreeMatrix {
    void operator()(MATRIX *pMatrix) const { MatrixFree(pMatrix); }
};
using OwnedMatrix = std::unique_ptr<MATRIX, FreeMatrix>;

}  // namespace qiven::matrix
