/* Functions of the C library that fail when a test wants it, whoever in the process calls them: link
   failing_calls.c into the program, or preload it. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* From now on the n-th call fails, once, with this errno. "memory" is every way to allocate. */
void FailingCallsArm(const char *szCall, int n, int iErrno);
/* Lets everything succeed again; says whether the failure has happened. */
int FailingCallsDisarm(void);
/* 1 and -1 around what is the test's own business. */
void FailingCallsSuspend(int nMore);
/* What CLOCK_MONOTONIC shows from now on, unless it is to fail: the machine's uptime must not matter. */
void FailingCallsUptime(long nSeconds);
/* Blocks and mappings that were made and not yet given back. */
long FailingCallsHeld(void);

#ifdef __cplusplus
}
#endif
