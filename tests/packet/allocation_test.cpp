#include <qiven/keys.h>
#include <qiven/packet.h>

#include <sodium.h>

#include "support/packets.h"

static int g_nAllocations = 0;

#define COUNTING(name, params, args)        \
    extern "C" void *__real_##name params;  \
    extern "C" void *__wrap_##name params { \
        ++g_nAllocations;                   \
        return __real_##name args;          \
    }
COUNTING(malloc, (size_t cb), (cb))
COUNTING(calloc, (size_t n, size_t cb), (n, cb))
COUNTING(realloc, (void *p, size_t cb), (p, cb))

TEST(Decode, AllocatesNothing) {
    ASSERT_EQ(QIVENProcessKeyInit(), 0);
    const std::string plain = Answer(2, "attic", "10.0.0.1", "a71c") + Field(0x2A, "text") + Field(0xBC, "x");
    std::string sealed{reinterpret_cast<const char *>(stQIVENHeaderEncrypted), sizeof stQIVENHeaderEncrypted};
    sealed.resize(sealed.size() + crypto_box_SEALBYTES + plain.size());
    crypto_box_seal(reinterpret_cast<unsigned char *>(&sealed[8]),
                    reinterpret_cast<const unsigned char *>(plain.data()), plain.size(),
                    QIVENProcessPublicKeyGet());
    EXPECT_GT(g_nAllocations, 0) << "the keys lie in memory that is counted";
    g_nAllocations = 0;
    nasinfo record;
    for (const std::string &packet : {plain, sealed, plain + '\x01', sealed + '\x01'})
        EXPECT_EQ(QIVENPacketReadEncrypted(nullptr, reinterpret_cast<const unsigned char *>(packet.data()),
                                           static_cast<int>(packet.size()), &record) > 0,
                  packet.size() == plain.size() || packet.size() == sealed.size());
    EXPECT_EQ(g_nAllocations, 0);
    QIVENProcessKeyCleanup();
}
