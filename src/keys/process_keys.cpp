#include <qiven/keys.h>

#include <sodium.h>

#include <cstdlib>

namespace {

static_assert(QIVEN_KEY_SIZE == crypto_box_PUBLICKEYBYTES);
static_assert(QIVEN_KEY_SIZE == crypto_box_SECRETKEYBYTES);

// The process's one identity. The keys exist when blInited is set.
struct ProcessKeys {
    unsigned char *pPublicKey = nullptr;  // malloc
    unsigned char *pSecretKey = nullptr;  // sodium_malloc, inaccessible but while acquired
    uint32_t ulProcessID = 0;
    bool blInited = false;
};

ProcessKeys g_keys;

// Frees both keys; sodium_free wipes the secret one. It dies of a page that it cannot open, though: such a
// page is left where it is, as nobody else can read it either.
void FreeKeys() {
    free(g_keys.pPublicKey);
    if (g_keys.pSecretKey != nullptr && sodium_mprotect_readwrite(g_keys.pSecretKey) == 0)
        sodium_free(g_keys.pSecretKey);
    g_keys.pPublicKey = nullptr;
    g_keys.pSecretKey = nullptr;
}

// Tries again: a kernel that is short of memory for once shall not leave the key readable for ever.
bool HideSecretKey() {
    if (sodium_mprotect_noaccess(g_keys.pSecretKey) == 0) return true;
    return sodium_mprotect_noaccess(g_keys.pSecretKey) == 0;
}

// The key store takes 0 for "no process", so it is drawn again.
uint32_t DrawProcessID() {
    uint32_t ulProcessID;
    do {
        ulProcessID = randombytes_random();
    } while (ulProcessID == 0);
    return ulProcessID;
}

}  // namespace

int QIVENProcessKeyInit(void) {
    if (g_keys.blInited) return 0;
    if (sodium_init() < 0) return -1;
    g_keys.ulProcessID = DrawProcessID();
    g_keys.pPublicKey = static_cast<unsigned char *>(malloc(crypto_box_PUBLICKEYBYTES));
    g_keys.pSecretKey = static_cast<unsigned char *>(sodium_malloc(crypto_box_SECRETKEYBYTES));
    if (g_keys.pPublicKey == nullptr || g_keys.pSecretKey == nullptr) {
        FreeKeys();
        return -1;
    }
    sodium_mprotect_readwrite(g_keys.pSecretKey);
    if (crypto_box_keypair(g_keys.pPublicKey, g_keys.pSecretKey) != 0) {
        FreeKeys();
        return -1;
    }
    HideSecretKey();
    g_keys.blInited = true;
    return 0;
}

int QIVENProcessKeyInited(void) {
    return g_keys.blInited ? 1 : 0;
}

int QIVENProcessKeyCleanup(void) {
    if (!g_keys.blInited) return -1;
    FreeKeys();
    g_keys.blInited = false;
    g_keys.ulProcessID = 0;
    return 0;
}

const unsigned char *QIVENProcessPublicKeyGet(void) {
    return g_keys.pPublicKey;
}

const unsigned char *QIVENProcessSecretKeyAcquire(void) {
    if (!g_keys.blInited || sodium_mprotect_readonly(g_keys.pSecretKey) != 0) return nullptr;
    return g_keys.pSecretKey;
}

int QIVENProcessSecretKeyRelease(void) {
    if (!g_keys.blInited) return -1;
    return HideSecretKey() ? 0 : -1;
}

uint32_t QIVENProcessGetID(void) {
    return g_keys.ulProcessID;
}
