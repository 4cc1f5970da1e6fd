/*
 * qiven/log.h - the pluggable logger, byte order, and the conventions of every qiven header.
 *
 * Conventions (they hold for the whole library unless a declaration says otherwise):
 *
 *   Ownership    Every record is the caller's, usually a local variable. The library keeps no pointer to it
 *                after the call returns (gpLog is the one exception, and says so).
 *   Null         A null log record is always allowed and means silence. Any other null argument is a failed
 *                argument check: it is reported on level 1 and has the failure result of the call.
 *   Results      0 is success and -1 failure unless the declaration states a count. Functions never throw.
 *                errno is not part of any result; any call may change it.
 *   Addresses    IPv4 addresses in records are 32-bit values in network byte order; ports are in host byte
 *                order; 0xFFFFFFFF stands for "no address".
 *   Texts        Character arrays hold NUL-terminated bytes without a promised encoding. What came off the
 *                network may hold any byte but NUL: escape it before showing it to a person.
 *   Threads      The library starts no threads and takes no locks of its own. "Reentrant" below means:
 *                may run in any number of threads at once on separate records.
 *
 *   Names        sz text, cb count of bytes, n count, ul/ull/us unsigned 32/64/16 bit, i signed, bl 0-or-1
 *                flag, p pointer, pfn function pointer, rg array.
 */
#ifndef QIVEN_LOG_H
#define QIVEN_LOG_H

#include <stdint.h>

#if defined(__GNUC__)
#define QIVEN_API __attribute__((visibility("default")))
#define QIVEN_PRINTF(iFormat, iFirst) __attribute__((format(printf, iFormat, iFirst)))
#else
#define QIVEN_API
#define QIVEN_PRINTF(iFormat, iFirst)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Level 1: invalid arguments, failed system calls, packets that cannot be built, allocation failures. A
 * stranger's packet can cause messages on this level too: the receive loop writes one for every datagram that
 * it refuses.
 */
#define QIVEN_LOG_ERR 1
/** Level 2: traces, and most reasons why a packet is refused. */
#define QIVEN_LOG_DEBUG 2

/** Size of the buffer that a message is formatted into: longer messages are cut to one character less. */
#define QIVEN_LOG_MESSAGE_SIZE 8192

/**
 * Output function of one level.
 * @param szMessage the finished, NUL-terminated text; most messages end in a newline, some do not. It may
 * hold bytes that came off the network. Valid during the call only.
 * @return any value; QIVENLog() hands it to its caller, the library itself ignores it.
 */
typedef int (*QIVEN_LOG_FUNC)(const char *szMessage);

/**
 * Lock function of a log record.
 * @param iLock 1 takes the lock, 0 releases it.
 * @return -1 if the lock could not be taken; any other value is success.
 */
typedef int (*QIVEN_LOCK_FUNC)(int iLock);

/**
 * Log record: where messages go. Zero it, then fill it with QIVENLogFuncSet(); a zeroed record is silent.
 * The caller makes sure that no other thread logs through the record while a slot changes.
 */
typedef struct QIVEN_LOG {
    /** Taken with 1 before and released with 0 after each message; null for no locking. */
    QIVEN_LOCK_FUNC pfnLock;
    /** Output functions indexed by level. Slot 0 belongs to no level and is never used; null is "off". */
    QIVEN_LOG_FUNC rgpfnLog[3];
} QIVEN_LOG;

/**
 * Process-wide log record for callbacks that have no log parameter; null until a program sets it. A host
 * search points it at its own record while it runs and sets it back to null. A program that sets it keeps the
 * record alive until gpLog is null or points elsewhere. Not locked.
 */
QIVEN_API extern QIVEN_LOG *gpLog;

/**
 * Sets the output function of a level; null turns the level off.
 * @return 0; -1 without change if pLog is null or iLevel is not 1 or 2.
 */
QIVEN_API int QIVENLogFuncSet(QIVEN_LOG *pLog, int iLevel, QIVEN_LOG_FUNC pfnLog);

/**
 * Output function of a level.
 * @return the function; null if pLog is null, iLevel is not 1 or 2, or the level is off.
 */
QIVEN_API QIVEN_LOG_FUNC QIVENLogFuncGet(const QIVEN_LOG *pLog, int iLevel);

/**
 * Calls the record's lock function.
 * @param iLock 1 to take, 0 to release.
 * @return -1 if pLog is null; 0 if the record has no lock function; else what the lock function returns.
 */
QIVEN_API int QIVENLogLock(const QIVEN_LOG *pLog, int iLock);

/**
 * Formats one message like printf(3) and passes it to the level's output function, under the record's lock.
 * The text is cut to 8191 characters. A level that is off is neither formatted nor locked. Reentrant.
 * @return what the output function returns; 0 if the level is off; -1, with nothing put out, if pLog or
 *         szFormat is null, iLevel is not 1 or 2, or the lock function returned -1.
 */
QIVEN_API int QIVENLog(const QIVEN_LOG *pLog, int iLevel, const char *szFormat, ...) QIVEN_PRINTF(3, 4);

/** Ready-made output function: syslog(3) at LOG_ERR, text unchanged. @return 0; -1 if szMessage is null. */
QIVEN_API int QIVENLogDefSyslogErr(const char *szMessage);
/** Ready-made output function: syslog(3) at LOG_DEBUG, text unchanged. @return 0; -1 if szMessage is null. */
QIVEN_API int QIVENLogDefSyslogDebug(const char *szMessage);
/**
 * Ready-made output function: standard output, text unchanged, no newline added, not flushed.
 * @return 0; -1 if szMessage is null.
 */
QIVEN_API int QIVENLogDefConsole(const char *szMessage);

/*
 * Byte order. Plain value conversions between host order and network (big-endian) or little-endian order,
 * without side effects. Reentrant. The 64-bit network forms reverse all eight bytes on a little-endian host.
 */
QIVEN_API uint16_t QIVENSocketHtons(uint16_t usHost);
QIVEN_API uint16_t QIVENSocketNtohs(uint16_t usNet);
QIVEN_API uint32_t QIVENSocketHtonl(uint32_t ulHost);
QIVEN_API uint32_t QIVENSocketNtohl(uint32_t ulNet);
QIVEN_API uint64_t QIVENSocketHtonll(uint64_t ullHost);
QIVEN_API uint64_t QIVENSocketNtohll(uint64_t ullNet);
QIVEN_API uint32_t QIVENSocketHtoLEl(uint32_t ulHost);
QIVEN_API uint32_t QIVENSocketLEtoHl(uint32_t ulLE);
QIVEN_API uint64_t QIVENSocketHtoLEll(uint64_t ullHost);
QIVEN_API uint64_t QIVENSocketLEtoHll(uint64_t ullLE);

/**
 * Prepares the platform's socket layer before a socket is created. The transport calls it itself.
 * @return 0; on Linux there is nothing to prepare.
 */
QIVEN_API int QIVENSocketInit(void);

#ifdef __cplusplus
}
#endif

#endif
