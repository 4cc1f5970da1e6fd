/* Makes functions of the C library fail for all callers in the process: link failing_calls.c into the
   program, or preload it. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Makes the n-th call from now on fail, once, with this errno; every call, if n is -1. "memory" means all
   allocation functions, "sodium_mprotect" all functions that change the protection of a key. */
void FailingCallsArm(const char *szCall, int n, int iErrno);
/* Lets all calls succeed again; returns whether the failure has happened. */
int FailingCallsDisarm(void);
/* Call with 1 before and with -1 after code of the test itself. */
void FailingCallsSuspend(int nMore);
/* Sets the value of CLOCK_MONOTONIC, so that the uptime of the machine does not matter. */
void FailingCallsUptime(long nSeconds);
/* Number of blocks and mappings that have not been freed. */
long FailingCallsHeld(void);

#ifdef __cplusplus
}
#endif
