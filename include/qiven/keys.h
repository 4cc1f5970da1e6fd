/*
 * qiven/keys.h - the process's own key pair, and the store of peers' public keys. Conventions: qiven/log.h.
 *
 * Everything here is process-wide and unlocked: callers that use it from several threads serialise their
 * calls. Nothing here logs.
 */
#ifndef QIVEN_KEYS_H
#define QIVEN_KEYS_H

#include <qiven/log.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Bytes of a public or secret key (X25519). */
#define QIVEN_KEY_SIZE 32
/** Bytes of a key as text: 64 hexadecimal digits and the NUL. */
#define QIVEN_KEY_HEX_SIZE 65
/** The peer key store holds at most this many entries. */
#define QIVEN_KEYS_MAX 4096
/** Longest peer name; a longer one would push the identifier out of the entry's name. */
#define QIVEN_PEER_NAME_MAX 54

/**
 * Makes the process key pair and draws the process identifier. The secret key lives in libsodium guarded
 * memory, inaccessible but while it is acquired.
 * @return 0 when the keys exist afterwards (also when they did before: nothing changes then); -1 on failure
 */
QIVEN_API int QIVENProcessKeyInit(void);
/** @return 1 when the process has its keys, else 0 */
QIVEN_API int QIVENProcessKeyInited(void);
/**
 * Wipes and frees the key pair and sets the identifier to 0.
 * @return 0; -1 when there are no keys
 */
QIVEN_API int QIVENProcessKeyCleanup(void);
/**
 * @return the 32 bytes of the public key, valid until QIVENProcessKeyCleanup(); null when there are no keys.
 * The library owns them.
 */
QIVEN_API const unsigned char *QIVENProcessPublicKeyGet(void);
/**
 * Makes the secret key readable. Use it for one operation and call QIVENProcessSecretKeyRelease() right
 * after, whatever the operation's result. Not counted: one holder at a time.
 * @return the 32 bytes of the secret key; null when there are no keys or the protection could not be changed
 */
QIVEN_API const unsigned char *QIVENProcessSecretKeyAcquire(void);
/**
 * Makes the secret key inaccessible again.
 * @return 0; -1 when there are no keys or the protection could not be changed
 */
QIVEN_API int QIVENProcessSecretKeyRelease(void);
/**
 * @return the process identifier (random, never 0 while there are keys); 0 before the first
 * QIVENProcessKeyInit() and after QIVENProcessKeyCleanup()
 */
QIVEN_API uint32_t QIVENProcessGetID(void);

/**
 * Stores a peer's public key under its name and process identifier, replacing an older one. When the store is
 * full, entries are aged out: first those older than one day (in the first two days of uptime: than half the
 * uptime), then with that age halved again and again, never below 601 seconds (monotonic clock). When that
 * makes no room, the store is emptied first.
 * @param szPeer         the peer's name (its szHostIdent), at most QIVEN_PEER_NAME_MAX characters
 * @param ulProcessID    the peer's process identifier, not 0
 * @param szPublicKeyHex the key as hexadecimal text, at most 64 characters, none of them a comma
 * @return 0, also when the store had no memory for the new entry: a caller that has to know asks
 * QIVENGetKey(). -1 on a bad argument (the store is unchanged), or when the store could not be made or aged
 * out
 */
QIVEN_API int QIVENAddKey(const char *szPeer, uint32_t ulProcessID, const char *szPublicKeyHex);
/**
 * Looks a peer's key up and renews its age.
 * @param szOutput receives the key text with its NUL; must hold QIVEN_KEY_HEX_SIZE bytes
 * @return 0 when found, else -1. Without memory for the renewal the key keeps the age it had.
 */
QIVEN_API int QIVENGetKey(const char *szPeer, uint32_t ulProcessID, char *szOutput);
/** Removes a peer's key. @return 0 when one was removed, else -1 */
QIVEN_API int QIVENRemoveKey(const char *szPeer, uint32_t ulProcessID);
/** Empties the store. @return 0; -1 when nothing was ever stored */
QIVEN_API int QIVENRemoveAllKeys(void);

#ifdef __cplusplus
}
#endif

#endif
