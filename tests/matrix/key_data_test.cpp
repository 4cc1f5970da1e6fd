#include <qiven/matrix.h>

#include <utility>
#include <vector>

#include "matrix/key_conditions.h"

namespace {

TEST(MatrixKeyData, FulfilsTheConditions) {
    for (const MATRIX64 *p : {&mtrx64, &mtri64})
        EXPECT_EQ((std::pair{8, 8}), (std::pair{p->rows, p->cols}));
    CheckKey(mtrx64.elem, mtri64.elem);
    EXPECT_EQ('\0', mapd2c[64]);
    CheckAlphabet(std::string(mapd2c), std::vector<int>(mapc2d, mapc2d + 128));
    EXPECT_EQ(static_cast<void *>(&mtrx64), pmtr64);
    EXPECT_EQ(static_cast<void *>(&mtri64), pmti64);
}

}  // namespace
