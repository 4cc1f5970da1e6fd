// The program's operator new serves the shared libraries, too: with it, a sanitizer's own does not get
// between them and failing_calls.c.
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
