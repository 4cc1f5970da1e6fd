#include "support/failing_new.h"

#include <cstdlib>
#include <new>

namespace {

int g_nMore = -1;

void *Allocate(size_t cb) {
    return g_nMore >= 0 && g_nMore-- == 0 ? nullptr : malloc(cb);
}

}  // namespace

void test::FailNewAfter(int nMore) {
    g_nMore = nMore;
}

bool test::FailureIsPending() {
    return g_nMore >= 0;
}

void *operator new(size_t cb) {
    void *p = Allocate(cb);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
void *operator new(size_t cb, const std::nothrow_t & /*unused*/) noexcept {
    return Allocate(cb);
}
void operator delete(void *p) noexcept {
    free(p);
}
void operator delete(void *p, size_t /*cb*/) noexcept {
    free(p);
}
void operator delete(void *p, const std::nothrow_t & /*unused*/) noexcept {
    free(p);
}
