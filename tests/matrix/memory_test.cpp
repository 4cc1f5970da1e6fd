// Memory that runs out at every allocation in turn. The linker sends the room's calls here.
#include <cstdlib>
#include <cstring>
#include <string>

#include "matrix/dense.h"

namespace {

bool g_blWatching = false;
int g_nUntilFailure = 0;  // 1 fails the next allocation; 0 none
int g_nHeld = 0;

template <class Allocate>
void *Watch(Allocate allocate) {
    if (!g_blWatching) return allocate();
    if (g_nUntilFailure > 0 && --g_nUntilFailure == 0) return nullptr;
    g_nHeld++;
    return allocate();
}

}  // namespace

extern "C" {
void *__real_malloc(size_t cb);
void *__real_calloc(size_t n, size_t cb);
void __real_free(void *pBlock);

void *__wrap_malloc(size_t cb) {
    return Watch([=] { return __real_malloc(cb); });
}
void *__wrap_calloc(size_t n, size_t cb) {
    return Watch([=] { return __real_calloc(n, cb); });
}
void __wrap_free(void *pBlock) {
    if (g_blWatching && pBlock != nullptr) g_nHeld--;
    __real_free(pBlock);
}
}

namespace {

// The result of a call, all of whose memory must have been given back.
template <class Call>
int Watched(int nUntilFailure, Call call) {
    g_nUntilFailure = nUntilFailure;
    g_nHeld = 0;
    g_blWatching = true;
    const int iResult = call();
    g_blWatching = false;
    EXPECT_EQ(0, g_nHeld);
    return iResult;
}

TEST(MatrixMemory, FailsCleanlyAtEachAllocation) {
    const Dense a = Make({{0, 2}, {4, 0}});
    const Dense b = Filled(2, 2, -7);
    char szEncoded[33] = "";
    ASSERT_EQ(32, MatrixEncode("ten bytes.", szEncoded));
    const std::string foreign = std::string(31, mapd2c[0]) + "!";
    char szOutput[64] = "untouched";
    const auto invert = [&] { return MatrixInversion(a.get(), b.get()); };
    const auto encode = [&] { return MatrixEncode("ten bytes.", szOutput); };
    const auto decode = [&] { return MatrixDecode(szEncoded, szOutput); };
    for (const int nUntilFailure : {1, 2}) {
        EXPECT_EQ(-3, Watched(nUntilFailure, invert));
        EXPECT_EQ(-1, Watched(nUntilFailure, encode));
        EXPECT_EQ(-1, Watched(nUntilFailure, decode));
    }
    EXPECT_EQ(-1, Watched(0, [&] { return MatrixDecode(foreign.c_str(), szOutput); }));
    EXPECT_EQ(std::vector<double>(4, -7), Values(b));
    EXPECT_STREQ("untouched", szOutput);
    EXPECT_EQ(0, Watched(3, invert));  // there is no third allocation
    EXPECT_EQ(32, Watched(3, encode));
    EXPECT_EQ(10, Watched(3, decode));
    const Dense singular = Make({{1, 1}, {1, 1}});
    EXPECT_EQ(-2, Watched(0, [&] { return MatrixInversion(singular.get(), b.get()); }));
    EXPECT_EQ(1, Watched(1, [] { return MatrixAlloc(2, 2) == nullptr ? 1 : 0; }));
}

}  // namespace
