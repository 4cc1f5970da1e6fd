/*
 * tavocore.h - string hash, string list, text, file and error helpers: the stand-in for the platform's core
 * utility library on a plain Linux machine (libtavocore.so.6).
 *
 * Handles are owned by whoever allocated them. Null handles are refused, never dereferenced. Nothing here
 * logs or throws. Separate handles may be used by separate threads; one handle serves one thread at a time.
 */
#ifndef TAVOCORE_H
#define TAVOCORE_H

#if defined(__GNUC__)
#define TAVOCORE_API __attribute__((visibility("default")))
#else
#define TAVOCORE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Hash from strings to strings. */
typedef struct TLIBC_SZHASH *TLIBC_SZHASH_HANDLE;
/** Growing list of strings. */
typedef struct TLIBC_SZLIST *TLIBC_SZLIST_HANDLE;

/**
 * Creates an empty hash.
 * @param nSize expected number of pairs, a hint; 0 for the default
 * @return the handle, freed with TLIBCSzHashFree(); null on a negative size or without memory
 */
TAVOCORE_API TLIBC_SZHASH_HANDLE TLIBCSzHashAlloc(int nSize);
/** Frees a hash and its strings; null is ignored. */
TAVOCORE_API void TLIBCSzHashFree(TLIBC_SZHASH_HANDLE pHash);
/**
 * Inserts a pair, or replaces the value of a key; both strings are copied.
 * @param ppHash address of the handle, which may be replaced if the table grows
 * @return 0; -1 on a null argument or without memory (the hash is unchanged)
 */
TAVOCORE_API int TLIBCSzHashSetValue(TLIBC_SZHASH_HANDLE *ppHash, const char *szKey, const char *szValue);
/** @return the value of a key, owned by the hash and valid until the pair changes; null if absent */
TAVOCORE_API const char *TLIBCSzHashGetValue(TLIBC_SZHASH_HANDLE pHash, const char *szKey);
/** Removes a pair. @return 1 if removed, 0 if absent or on a null argument */
TAVOCORE_API int TLIBCSzHashRemoveKey(TLIBC_SZHASH_HANDLE pHash, const char *szKey);
/** @return number of pairs; 0 for null */
TAVOCORE_API int TLIBCSzHashPairNum(TLIBC_SZHASH_HANDLE pHash);
/**
 * Appends a copy of every key, in no particular order, to a list.
 * @param ppList address of the list's handle, which may be replaced if the list grows
 * @return number of keys appended; -1 on a null argument or without memory (nothing appended)
 */
TAVOCORE_API int TLIBCSzHashEnumKey(TLIBC_SZHASH_HANDLE pHash, TLIBC_SZLIST_HANDLE *ppList);
/** Removes every pair and keeps the empty hash; null is ignored. */
TAVOCORE_API void TLIBCHashRemoveAll(TLIBC_SZHASH_HANDLE pHash);

/**
 * Creates an empty list.
 * @param nSize initial capacity; the list grows as needed
 * @return the handle, freed with TLIBCSzListFree(); null on a negative size or without memory
 */
TAVOCORE_API TLIBC_SZLIST_HANDLE TLIBCSzListAlloc(int nSize);
/** @return the string at an index, owned by the list and valid until it changes; null if there is none */
TAVOCORE_API const char *TLIBCSzListGet(TLIBC_SZLIST_HANDLE pList, int nIndex);
/** Empties a list; null is ignored. */
TAVOCORE_API void TLIBCSzListRemoveAll(TLIBC_SZLIST_HANDLE pList);
/** Frees a list and its strings; null is ignored. */
TAVOCORE_API void TLIBCSzListFree(TLIBC_SZLIST_HANDLE pList);

/**
 * Splits a text and appends the fields to a list. Every separator character splits: empty fields count, a
 * trailing one too, and a text without a separator is one field.
 * @param szSeparators the characters that separate; not empty
 * @param ppList address of the list's handle, which may be replaced if the list grows
 * @return number of fields; -1 on a bad argument or without memory (nothing appended)
 */
TAVOCORE_API int TLIBCStrSep(const char *szText, const char *szSeparators, TLIBC_SZLIST_HANDLE *ppList);
/**
 * Removes white space (as in the C locale: space, \t \n \v \f \r) from both ends of a text, in place.
 * @param iFlags 0; reserved
 * @return length of what is left; -1 on a null text
 */
TAVOCORE_API int TLIBCStrTrimSpace(char *szText, int iFlags);
/**
 * Tests for a host name (RFC 1123): dot-separated labels of 1 to 63 letters, digits and hyphens, no hyphen at
 * either end of a label, at most 253 characters.
 * @return 1 if it is one, else 0 (also for null)
 */
TAVOCORE_API int BlTLIBIsHostname(const char *szText);

/**
 * Makes sure that a regular file exists: creates it empty with mode 0644 (less the umask) if it is
 * missing, and leaves an existing one as it is. Never follows a symbolic link in the last place of the path.
 * @return 0; -1 with errno set if it cannot be created, or if the path is not a regular file
 */
TAVOCORE_API int TLIBCFileTouch(const char *szPath);

/**
 * Records the calling thread's last error.
 * @param szFile name of the source file, copied; cut to 255 characters, null counts as empty
 */
TAVOCORE_API void TLIBCErrSetEx(int iCode, const char *szFile, int iLine);
/** @return the code that this thread recorded last; 0 if none */
TAVOCORE_API int TLIBCErrGet(void);
/**
 * The error that this thread recorded last.
 * @param pszFile receives the file name ("" if none), owned by the library, valid until the thread's next
 * error; may be null
 * @param piLine  receives the line; may be null
 * @return the code; 0 if none
 */
TAVOCORE_API int TLIBCErrGetEx(const char **pszFile, int *piLine);

#ifdef __cplusplus
}
#endif

#endif
