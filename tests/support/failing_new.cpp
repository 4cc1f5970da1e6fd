// The program's operator new also serves the shared libraries, so that their allocations go through
// failing_calls.c and not through the operator new of a sanitizer.
#include <cstdlib>
#include <new>

void *operator new(size_t cb) {
    void *p = malloc(cb);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
void *operator new(size_t cb, const std::nothrow_t & /*unused*/) noexcept {
    return malloc(cb);
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
