#include <cstring>
#include <vector>

#include "matrix/dense.h"
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

TEST(MatrixKeyData, ComputedInverseIsTheProvisionedOne) {
    const Dense computed = Filled(8, 8, 0);
    ASSERT_EQ(0, MatrixInversion(pmtr64, computed.get()));
    for (int i = 0; i < 64; i++)
        EXPECT_NEAR(mtri64.elem[i], Elements(computed.get())[i], 1e-9);
}

}  // namespace
