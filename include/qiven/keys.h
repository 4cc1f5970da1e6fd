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
 * Creates the process key pair and draws the process identifier. The secret key is in guarded memory of
 * libsodium, which is inaccessible except while the key is acquired.
 * @return 0 if the keys exist afterwards (if they existed before, nothing changes); -1 on failure
 */
QIVEN_API int QIVENProcessKeyInit(void);
/** @return 1 if the process has its keys, else 0 */
QIVEN_API int QIVENProcessKeyInited(void);
/**
 * Wipes and frees the key pair and sets the identifier to 0. If the kernel refuses to make the memory of the
 * secret key writable, the key is wiped all the same, but its page of memory is leaked.
 * @return 0; -1 if there are no keys
 */
QIVEN_API int QIVENProcessKeyCleanup(void);
/**
 * @return the 32 bytes of the public key, valid until QIVENProcessKeyCleanup(); null if there are no keys.
 * The library owns them.
 */
QIVEN_API const unsigned char *QIVENProcessPublicKeyGet(void);
/**
 * Makes the secret key readable. Use it for one operation and call QIVENProcessSecretKeyRelease() right
 * after, whatever the operation's result. Acquisitions are not counted: only one
 * operation may hold the key at a time.
 * @return the 32 bytes of the secret key; null if there are no keys or the protection could not be changed
 */
QIVEN_API const unsigned char *QIVENProcessSecretKeyAcquire(void);
/**
 * Makes the secret key inaccessible again.
 * @return 0; -1 if there are no keys or the protection could not be changed
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
 * makes no space, the store is emptied first.
 * @param szPeer         the peer's name (its szHostIdent), at most QIVEN_PEER_NAME_MAX characters
 * @param ulProcessID    the peer's process identifier, not 0
 * @param szPublicKeyHex the key as hexadecimal text, at most 64 characters, none of them a comma
 * @return 0, also if the store had no memory for the new entry: QIVENGetKey() tells
 * whether it was stored. -1 on a bad argument (the store is unchanged), or if the store could not be created
 * or aged out
 */
QIVEN_API int QIVENAddKey(const char *szPeer, uint32_t ulProcessID, const char *szPublicKeyHex);
/**
 * Looks a peer's key up and renews its age.
 * @param szOutput receives the key text with its NUL; must hold QIVEN_KEY_HEX_SIZE bytes
 * @return 0 if found, else -1. Without memory for the renewal, the key keeps its age.
 */
QIVEN_API int QIVENGetKey(const char *szPeer, uint32_t ulProcessID, char *szOutput);
/** Removes a peer's key. @return 0 if one was removed, else -1 */
QIVEN_API int QIVENRemoveKey(const char *szPeer, uint32_t ulProcessID);
/** Empties the store. @return 0; -1 if nothing was ever stored */
QIVEN_API int QIVENRemoveAllKeys(void);

#ifdef __cplusplus
}
#endif

#endif
