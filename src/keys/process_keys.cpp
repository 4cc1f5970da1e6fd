// The key pair and the identifier of the process.
#include <qiven/keys.h>

#include <sodium.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace {

static_assert(QIVEN_KEY_SIZE == crypto_box_PUBLICKEYBYTES);
static_assert(QIVEN_KEY_SIZE == crypto_box_SECRETKEYBYTES);

// The identity of the process. The keys exist if blInited is set.
struct ProcessIdentity {
    unsigned char *pPublicKey = nullptr;  // malloc
    unsigned char *pSecretKey = nullptr;  // sodium_malloc, inaccessible except while acquired
    bool blProtected = false;             // its protection was changed at least once
    uint32_t ulProcessID = 0;
    bool blInited = false;
};

ProcessIdentity g_keys;

// Wipes a secret key whose memory the kernel does not make writable. Guarded memory is a page of its own that
// ends with the key; its content can be discarded under any protection once the page is not locked.
void WipeInPlace() {
    if (!g_keys.blProtected) {  // still writable, as it was allocated
        sodium_memzero(g_keys.pSecretKey, crypto_box_SECRETKEYBYTES);
        return;
    }
    const auto cbPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *pPage = g_keys.pSecretKey + crypto_box_SECRETKEYBYTES - cbPage;
    munlock(pPage, cbPage);
    madvise(pPage, cbPage, MADV_DONTNEED);
}

// Wipes and frees both keys. sodium_free() aborts if it cannot unprotect the memory; such memory is wiped in
// place and leaked.
void FreeKeys() {
    free(g_keys.pPublicKey);
    if (g_keys.pSecretKey != nullptr) {
        if (sodium_mprotect_readwrite(g_keys.pSecretKey) == 0)
            sodium_free(g_keys.pSecretKey);
        else
            WipeInPlace();
    }
    g_keys.pPublicKey = nullptr;
    g_keys.pSecretKey = nullptr;
    g_keys.blProtected = false;
}

// Tries twice: a kernel that is short of memory for a moment must not leave the key readable.
bool HideSecretKey() {
    for (int nTry = 0; nTry < 2; ++nTry) {
        if (sodium_mprotect_noaccess(g_keys.pSecretKey) == 0) return g_keys.blProtected = true;
    }
    return false;
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
    g_keys.blProtected = true;
    return g_keys.pSecretKey;
}

int QIVENProcessSecretKeyRelease(void) {
    if (!g_keys.blInited) return -1;
    return HideSecretKey() ? 0 : -1;
}

uint32_t QIVENProcessGetID(void) {
    return g_keys.ulProcessID;
}
