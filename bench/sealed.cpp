// Sealed packets, compared with the bare cryptography.
#include <qiven/keys.h>

#include <benchmark/benchmark.h>
#include <sodium.h>

#include <cstdlib>

#include "packets.h"

namespace bench {

namespace {

// A separate key pair, in guarded memory like that of the library.
struct Keys {
    Keys() {
        sodium_mprotect_readwrite(pSecret);
        crypto_box_keypair(rgPublic, pSecret);
        sodium_mprotect_noaccess(pSecret);
    }
    ~Keys() { sodium_free(pSecret); }
    Keys(const Keys &) = delete;
    Keys &operator=(const Keys &) = delete;

    unsigned char rgPublic[crypto_box_PUBLICKEYBYTES];
    unsigned char *pSecret = static_cast<unsigned char *>(sodium_malloc(crypto_box_SECRETKEYBYTES));
};

const unsigned char *Data(const std::string &bytes) {
    return reinterpret_cast<const unsigned char *>(bytes.data());
}

std::string Box(const std::string &plain, const unsigned char *pKey) {
    std::string box(plain.size() + crypto_box_SEALBYTES, '\0');
    crypto_box_seal(reinterpret_cast<unsigned char *>(box.data()), Data(plain), plain.size(), pKey);
    return box;
}

void ReadFloor(benchmark::State &state, const Packet &packet) {
    const Keys keys;
    const std::string box = Box(packet.bytes, keys.rgPublic);
    unsigned char rgPlain[QIVEN_PACKET_MAX];
    for (auto _ : state) {
        sodium_mprotect_readonly(keys.pSecret);
        const int iResult = crypto_box_seal_open(rgPlain, Data(box), box.size(), keys.rgPublic, keys.pSecret);
        sodium_mprotect_noaccess(keys.pSecret);
        if (iResult != 0) Fail("a box cannot be opened");
    }
}

void ReadQiven(benchmark::State &state, const Packet &packet) {
    const std::string sealed =
        std::string(reinterpret_cast<const char *>(stQIVENHeaderEncrypted), QIVENHeaderSizeEncrypted) +
        Box(packet.bytes, QIVENProcessPublicKeyGet());
    nasinfo record;
    for (auto _ : state) {
        if (QIVENPacketReadEncrypted(nullptr, Data(sealed), static_cast<int>(sealed.size()), &record) <= 0)
            Fail("a sealed packet cannot be read");
    }
    DemandEqual(record, *packet.record, "the sealed reader");
}

void WriteFloor(benchmark::State &state, const Packet &packet) {
    const Keys keys;
    unsigned char rgBox[QIVEN_PACKET_MAX];
    for (auto _ : state)
        crypto_box_seal(rgBox, Data(packet.bytes), packet.bytes.size(), keys.rgPublic);
    benchmark::DoNotOptimize(rgBox);
}

void WriteQiven(benchmark::State &state, const Packet &packet) {
    char szKeyHex[QIVEN_KEY_HEX_SIZE];
    sodium_bin2hex(szKeyHex, sizeof szKeyHex, QIVENProcessPublicKeyGet(), QIVEN_KEY_SIZE);
    int cbBuffer = QIVEN_PACKET_MAX;
    auto *pBuffer = static_cast<char *>(malloc(QIVEN_PACKET_MAX));
    const auto cbSealed =
        static_cast<int>(packet.bytes.size() + QIVENHeaderSizeEncrypted + crypto_box_SEALBYTES);
    for (auto _ : state) {
        if (QIVENPacketWriteEncrypted(nullptr, &pBuffer, &cbBuffer, &packet.send, szKeyHex) != cbSealed)
            Fail("a sealed packet cannot be written");
    }
    free(pBuffer);
}

}  // namespace

}  // namespace bench

int main(int argc, char **argv) {
    using namespace bench;
    benchmark::Initialize(&argc, argv);
    if (QIVENProcessKeyInit() != 0) Fail("no process keys");
    // The largest plain packet that can be sealed has 8136 bytes.
    static const Packet packets[] = {Sized(200), Sized(1024), Sized(8136)};
    for (const Packet &packet : packets) {
        const std::string size = std::to_string(packet.bytes.size());
        benchmark::RegisterBenchmark(("sealed-read/" + size + "/qiven").c_str(), ReadQiven, packet);
        benchmark::RegisterBenchmark(("sealed-read/" + size + "/floor").c_str(), ReadFloor, packet);
        benchmark::RegisterBenchmark(("sealed-write/" + size + "/qiven").c_str(), WriteQiven, packet);
        benchmark::RegisterBenchmark(("sealed-write/" + size + "/floor").c_str(), WriteFloor, packet);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
