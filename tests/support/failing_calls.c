/* The definitions of a program, or of a preloaded library, go before those of the C library. Preloaded, the
   environment says what fails: QIVEN_FAIL="CALL N ERRNO", and QIVEN_FAILED names the file that is made then.
   That counts from the setlocale() of main(): what runs before cannot report anything. */
#define _GNU_SOURCE
#include "support/failing_calls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <locale.h>
#include <net/if.h>
#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#define EXPORTED __attribute__((visibility("default")))

static char g_szCall[32];
static int g_nUntil, g_iErrno;
static const char *g_szReport;
static long g_nHeld, g_nUptime;
static int g_nSuspended;

static int Fails(const char *szCall) {
    if (g_nUntil == 0 || g_nSuspended > 0 || strcmp(szCall, g_szCall) != 0 || --g_nUntil > 0) return 0;
    if (g_szReport != NULL) syscall(SYS_close, syscall(SYS_open, g_szReport, O_WRONLY | O_CREAT, 0600));
    errno = g_iErrno;
    return 1;
}

void FailingCallsArm(const char *szCall, int n, int iErrno) {
    snprintf(g_szCall, sizeof g_szCall, "%s", szCall);
    g_iErrno = iErrno;
    g_nUntil = n;
}

int FailingCallsDisarm(void) {
    const int blFailed = g_nUntil == 0;
    g_nUntil = 0;
    return blFailed;
}

void FailingCallsSuspend(int nMore) {
    g_nSuspended += nMore;
}

void FailingCallsUptime(long nSeconds) {
    g_nUptime = nSeconds;
}

static void Count(int nMore) {
    if (g_nSuspended == 0) g_nHeld += nMore;
}

long FailingCallsHeld(void) {
    return g_nHeld;
}

static void ArmFromEnvironment(void) {
    const char *szFail = getenv("QIVEN_FAIL");
    g_szReport = getenv("QIVEN_FAILED");
    if (szFail != NULL && sscanf(szFail, "%31s %d %d", g_szCall, &g_nUntil, &g_iErrno) != 3) abort();
}

#define DEFINE(before, result, name, failed, params, args)                 \
    EXPORTED result name params {                                          \
        static result(*pfnReal) params;                                    \
        if (pfnReal == NULL) *(void **)&pfnReal = dlsym(RTLD_NEXT, #name); \
        before;                                                            \
        return Fails(#name) ? failed : pfnReal args;                       \
    }
#define CALL(...) DEFINE((void)0, __VA_ARGS__)
CALL(int, socket, -1, (int a, int b, int c), (a, b, c))
CALL(int, setsockopt, -1, (int a, int b, int c, const void *d, socklen_t e), (a, b, c, d, e))
CALL(int, bind, -1, (int a, __CONST_SOCKADDR_ARG b, socklen_t c), (a, b, c))
CALL(ssize_t, sendto, -1, (int a, const void *b, size_t c, int d, __CONST_SOCKADDR_ARG e, socklen_t f),
     (a, b, c, d, e, f))
CALL(ssize_t, recvfrom, -1, (int a, void *b, size_t c, int d, __SOCKADDR_ARG e, socklen_t *f),
     (a, b, c, d, e, f))
CALL(int, poll, -1, (struct pollfd * a, nfds_t b, int c), (a, b, c))
CALL(int, access, -1, (const char *a, int b), (a, b))
CALL(int, stat, -1, (const char *a, struct stat *b), (a, b))
CALL(int, lstat, -1, (const char *a, struct stat *b), (a, b))
CALL(int, fstat, -1, (int a, struct stat *b), (a, b))
CALL(ssize_t, write, -1, (int a, const void *b, size_t c), (a, b, c))
CALL(int, rename, -1, (const char *a, const char *b), (a, b))
CALL(int, unlink, -1, (const char *a), (a))
CALL(FILE *, fopen, NULL, (const char *a, const char *b), (a, b))
CALL(FILE *, popen, NULL, (const char *a, const char *b), (a, b))
CALL(FILE *, fdopen, NULL, (int a, const char *b), (a, b))
CALL(DIR *, opendir, NULL, (const char *a), (a))
CALL(struct dirent *, readdir, NULL, (DIR * a), (a))
CALL(struct if_nameindex *, if_nameindex, NULL, (void), ())
CALL(int, gethostname, -1, (char *a, size_t b), (a, b))
CALL(int, timer_create, -1, (clockid_t a, struct sigevent *b, timer_t *c), (a, b, c))
static int ShowsUptime(clockid_t clock, struct timespec *pNow) {
    if (g_nUptime == 0 || clock != CLOCK_MONOTONIC || strcmp(g_szCall, "clock_gettime") == 0) return 0;
    pNow->tv_sec = g_nUptime;
    pNow->tv_nsec = 0;
    return 1;
}
DEFINE(if (ShowsUptime(a, b)) return 0, int, clock_gettime, -1, (clockid_t a, struct timespec *b), (a, b))
CALL(ssize_t, getrandom, -1, (void *a, size_t b, unsigned c), (a, b, c))
CALL(int, mprotect, -1, (void *a, size_t b, int c), (a, b, c))
CALL(int, mlock, -1, (const void *a, size_t b), (a, b))
DEFINE(ArmFromEnvironment(), char *, setlocale, NULL, (int a, const char *b), (a, b))
/* These have done their work also when they report an error. */
DEFINE(if (strcmp(g_szCall, "close") == 0 && g_nUntil == 1) pfnReal(a), int, close, -1, (int a), (a))
/* A stream that failed says so. */
#define FAILED_STREAM(pf) pf->_flags |= strcmp(g_szCall, __func__) == 0 && g_nUntil == 1 ? 0x20 : 0
DEFINE(FAILED_STREAM(c), char *, fgets, NULL, (char *a, int b, FILE *c), (a, b, c))
DEFINE(FAILED_STREAM(d), size_t, fread, 0, (void *a, size_t b, size_t c, FILE *d), (a, b, c, d))
DEFINE(FAILED_STREAM(d), ssize_t, getdelim, -1, (char **a, size_t *b, int c, FILE *d), (a, b, c, d))
DEFINE(FAILED_STREAM(d), ssize_t, __getdelim, -1, (char **a, size_t *b, int c, FILE *d), (a, b, c, d))

#define VARIADIC(name, type, first)                                        \
    EXPORTED int name(type a, first b, ...) {                              \
        static int (*pfnReal)(type, first, ...);                           \
        if (pfnReal == NULL) *(void **)&pfnReal = dlsym(RTLD_NEXT, #name); \
        va_list args;                                                      \
        va_start(args, b);                                                 \
        void *pMore = va_arg(args, void *);                                \
        va_end(args);                                                      \
        return Fails(#name) ? -1 : pfnReal(a, b, pMore);                   \
    }
VARIADIC(open, const char *, int)
VARIADIC(ioctl, int, unsigned long)

EXPORTED void *mmap(void *a, size_t b, int c, int d, int e, off_t f) {
    static void *(*pfnReal)(void *, size_t, int, int, int, off_t);
    if (pfnReal == NULL) *(void **)&pfnReal = dlsym(RTLD_NEXT, "mmap");
    void *p = Fails("mmap") ? MAP_FAILED : pfnReal(a, b, c, d, e, f);
    if (p != MAP_FAILED) Count(1);
    return p;
}
DEFINE(Count(-1), int, munmap, -1, (void *a, size_t b), (a, b))

/* Memory is wanted before anything can be looked up; a sanitizer has an allocator of its own. */
#define ALLOCATOR(result, name, params, args, blNew)                                          \
    extern result __libc_##name params;                                                       \
    extern __attribute__((weak)) result __interceptor_##name params;                          \
    EXPORTED result name params {                                                             \
        if (Fails("memory")) return NULL;                                                     \
        if (blNew) Count(1);                                                                  \
        return __interceptor_##name != NULL ? __interceptor_##name args : __libc_##name args; \
    }
ALLOCATOR(void *, malloc, (size_t a), (a), 1)
ALLOCATOR(void *, calloc, (size_t a, size_t b), (a, b), 1)
ALLOCATOR(void *, realloc, (void *a, size_t b), (a, b), a == NULL)

extern void __libc_free(void *p);
extern __attribute__((weak)) void __interceptor_free(void *p);
EXPORTED void free(void *p) {
    if (p != NULL) Count(-1);
    if (__interceptor_free != NULL)
        __interceptor_free(p);
    else
        __libc_free(p);
}
