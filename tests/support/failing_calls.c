/* The definitions of a program or of a preloaded library take precedence over those of the C library. If this
   file is preloaded, it takes effect at the setlocale() of main(), because earlier code cannot report errors.
   There the process becomes a server: for each message "CALL N ERRNO" on the descriptor that QIVEN_FAIL names
   it forks, and the child continues as the program, in which that call fails. The server replies with the
   process identifier of the child and, after its exit, with "STATUS LEFT": the wait status, and the number
   of calls that were left before the one to fail. */
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
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#define EXPORTED __attribute__((visibility("default")))

static char g_szCall[32];
static int g_nOwnUntil, *g_pnUntil = &g_nOwnUntil, g_iErrno;
static long g_nHeld, g_nUptime;
static int g_nSuspended;

/* Memory is wanted before AddressSanitizer is ready for what it would look at in here. */
__attribute__((no_sanitize("address", "undefined"))) static int Fails(const char *szCall) {
    if (*g_pnUntil == 0 || g_nSuspended > 0 || strcmp(szCall, g_szCall) != 0) return 0;
    if (*g_pnUntil > 0 && --*g_pnUntil > 0) return 0;
    errno = g_iErrno;
    return 1;
}

void FailingCallsArm(const char *szCall, int n, int iErrno) {
    snprintf(g_szCall, sizeof g_szCall, "%s", szCall);
    g_iErrno = iErrno;
    *g_pnUntil = n;
}

int FailingCallsDisarm(void) {
    const int blFailed = *g_pnUntil == 0;
    *g_pnUntil = 0;
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

static void Serve(void) {
    const char *szDescriptor = getenv("QIVEN_FAIL");
    if (szDescriptor == NULL) return;
    const int fd = atoi(szDescriptor);
    /* Do not affect programs that this one starts. */
    unsetenv("QIVEN_FAIL");
    unsetenv("LD_PRELOAD");
    g_pnUntil = mmap(NULL, sizeof *g_pnUntil, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    char szOrder[64] = "", szCall[sizeof g_szCall];
    while (read(fd, szOrder, sizeof szOrder - 1) > 0) {
        int n = 0, iErrno = 0, iStatus = 0;
        if (sscanf(szOrder, "%31s %d %d", szCall, &n, &iErrno) != 3) abort();
        memset(szOrder, 0, sizeof szOrder);
        const pid_t pid = fork();
        if (pid == 0) {
            close(fd);
            FailingCallsArm(szCall, n, iErrno);
            return;
        }
        dprintf(fd, "%d", pid);
        waitpid(pid, &iStatus, 0);
        dprintf(fd, "%d %d", iStatus, *g_pnUntil);
    }
    _exit(0);
}

#define DEFINE_AS(as, before, result, name, failed, params, args)          \
    EXPORTED result name params {                                          \
        static result(*pfnReal) params;                                    \
        if (pfnReal == NULL) *(void **)&pfnReal = dlsym(RTLD_NEXT, #name); \
        before;                                                            \
        return Fails(as) ? failed : pfnReal args;                          \
    }
#define DEFINE(before, result, name, failed, params, args) \
    DEFINE_AS(#name, before, result, name, failed, params, args)
#define CALL(...) DEFINE((void)0, __VA_ARGS__)
CALL(int, socket, -1, (int a, int b, int c), (a, b, c))
CALL(int, setsockopt, -1, (int a, int b, int c, const void *d, socklen_t e), (a, b, c, d, e))
CALL(int, bind, -1, (int a, __CONST_SOCKADDR_ARG b, socklen_t c), (a, b, c))
CALL(ssize_t, sendto, -1, (int a, const void *b, size_t c, int d, __CONST_SOCKADDR_ARG e, socklen_t f),
     (a, b, c, d, e, f))
CALL(ssize_t, recvfrom, -1, (int a, void *b, size_t c, int d, __SOCKADDR_ARG e, socklen_t *f),
     (a, b, c, d, e, f))
CALL(ssize_t, sendmsg, -1, (int a, const struct msghdr *b, int c), (a, b, c))
CALL(int, recvmmsg, -1, (int a, struct mmsghdr *b, unsigned c, int d, struct timespec *e), (a, b, c, d, e))
CALL(ssize_t, send, -1, (int a, const void *b, size_t c, int d), (a, b, c, d))
CALL(ssize_t, recv, -1, (int a, void *b, size_t c, int d), (a, b, c, d))
CALL(int, getsockopt, -1, (int a, int b, int c, void *d, socklen_t *e), (a, b, c, d, e))
CALL(int, epoll_create1, -1, (int a), (a))
CALL(int, epoll_ctl, -1, (int a, int b, int c, struct epoll_event *d), (a, b, c, d))
CALL(int, epoll_wait, -1, (int a, struct epoll_event *b, int c, int d), (a, b, c, d))
CALL(int, signalfd, -1, (int a, const sigset_t *b, int c), (a, b, c))
CALL(int, timerfd_create, -1, (int a, int b), (a, b))
CALL(int, timerfd_settime, -1, (int a, int b, const struct itimerspec *c, struct itimerspec *d), (a, b, c, d))
CALL(int, poll, -1, (struct pollfd * a, nfds_t b, int c), (a, b, c))
CALL(int, access, -1, (const char *a, int b), (a, b))
CALL(int, stat, -1, (const char *a, struct stat *b), (a, b))
CALL(int, lstat, -1, (const char *a, struct stat *b), (a, b))
CALL(int, fstat, -1, (int a, struct stat *b), (a, b))
CALL(ssize_t, write, -1, (int a, const void *b, size_t c), (a, b, c))
CALL(int, rename, -1, (const char *a, const char *b), (a, b))
CALL(int, unlink, -1, (const char *a), (a))
CALL(FILE *, fopen, NULL, (const char *a, const char *b), (a, b))
CALL(FILE *, fopen64, NULL, (const char *a, const char *b), (a, b))
CALL(ssize_t, read, -1, (int a, void *b, size_t c), (a, b, c))
CALL(FILE *, popen, NULL, (const char *a, const char *b), (a, b))
CALL(FILE *, fdopen, NULL, (int a, const char *b), (a, b))
CALL(DIR *, opendir, NULL, (const char *a), (a))
CALL(struct dirent *, readdir, NULL, (DIR * a), (a))
CALL(struct if_nameindex *, if_nameindex, NULL, (void), ())
CALL(int, gethostname, -1, (char *a, size_t b), (a, b))
static int ShowsUptime(clockid_t clock, struct timespec *pNow) {
    if (g_nUptime == 0 || clock != CLOCK_MONOTONIC || strcmp(g_szCall, "clock_gettime") == 0) return 0;
    pNow->tv_sec = g_nUptime;
    pNow->tv_nsec = 999999999;
    return 1;
}
DEFINE(if (ShowsUptime(a, b)) return 0, int, clock_gettime, -1, (clockid_t a, struct timespec *b), (a, b))
CALL(ssize_t, getrandom, -1, (void *a, size_t b, unsigned c), (a, b, c))
CALL(int, mprotect, -1, (void *a, size_t b, int c), (a, b, c))
CALL(int, mlock, -1, (const void *a, size_t b), (a, b))
DEFINE(Serve(), char *, setlocale, NULL, (int a, const char *b), (a, b))
/* These calls take effect even if they report an error. */
DEFINE(if (strcmp(g_szCall, "close") == 0 && *g_pnUntil == 1) pfnReal(a), int, close, -1, (int a), (a))
/* A failed stream must report it. */
#define FAILED_STREAM(pf) pf->_flags |= strcmp(g_szCall, __func__) == 0 && *g_pnUntil == 1 ? 0x20 : 0
DEFINE(FAILED_STREAM(c), char *, fgets, NULL, (char *a, int b, FILE *c), (a, b, c))
DEFINE(FAILED_STREAM(d), size_t, fread, 0, (void *a, size_t b, size_t c, FILE *d), (a, b, c, d))
DEFINE(FAILED_STREAM(d), ssize_t, getdelim, -1, (char **a, size_t *b, int c, FILE *d), (a, b, c, d))
DEFINE(FAILED_STREAM(d), ssize_t, __getdelim, -1, (char **a, size_t *b, int c, FILE *d), (a, b, c, d))

/* Of libsodium and libtavocore. */
CALL(int, sodium_init, -1, (void), ())
CALL(int, crypto_box_keypair, -1, (unsigned char *a, unsigned char *b), (a, b))
DEFINE_AS("sodium_mprotect", (void)0, int, sodium_mprotect_noaccess, -1, (void *a), (a))
DEFINE_AS("sodium_mprotect", (void)0, int, sodium_mprotect_readwrite, -1, (void *a), (a))
CALL(const char *, TLIBCSzListGet, NULL, (const void *a, int b), (a, b))
CALL(const char *, TLIBCSzHashGetValue, NULL, (const void *a, const char *b), (a, b))
CALL(int, TLIBCSzHashRemoveKey, 0, (void *a, const char *b), (a, b))

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

/* Memory is needed before symbols can be looked up; a sanitizer has its own allocator. */
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
