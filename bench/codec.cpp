// Decoding and encoding of plain packets, compared with the floor.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "packets.h"

namespace bench {

namespace {

// The floor of a reader: clear the record once, one copy per value.
struct Floor {
    explicit Floor(const Packets &p) : packets(p) {
        for (size_t i = 0; i < packets.size(); ++i) {
            if (Encode(i) != packets[i].bytes.size()) Fail("the floor encodes another length");
        }
    }

    __attribute__((noinline)) bool Decode(size_t i) {
        const Packet &packet = packets[i];
        memset(&record, 0, sizeof record);
        auto *pRecord = reinterpret_cast<char *>(&record);
        for (const Copy &copy : packet.copies)
            memcpy(pRecord + copy.cbSlotOffset, packet.bytes.data() + copy.cbPacketOffset, copy.cb);
        return true;
    }

    // The floor of a writer that uses a separate buffer: clear the buffer, one copy per value, copy the
    // packet to the caller.
    __attribute__((noinline)) size_t Encode(size_t i) {
        const Packet &packet = packets[i];
        char built[QIVEN_PACKET_MAX];
        memset(built, 0, sizeof built);
        benchmark::DoNotOptimize(built);
        const auto *pRecord = reinterpret_cast<const char *>(packet.record.get());
        for (const Copy &copy : packet.copies)
            memcpy(built + copy.cbPacketOffset, pRecord + copy.cbSlotOffset, copy.cb);
        memcpy(output, built, packet.bytes.size());
        return packet.bytes.size();
    }

    const Packets &packets;
    nasinfo record;
    char output[QIVEN_PACKET_MAX];
};

struct Qiven {
    explicit Qiven(const Packets &p) : packets(p) {
        for (size_t i = 0; i < packets.size(); ++i) {
            if (!Decode(i)) Fail("qiven cannot decode");
            DemandEqual(record, *packets[i].record, "qiven");
        }
    }
    ~Qiven() { free(pOutput); }
    Qiven(const Qiven &) = delete;
    Qiven &operator=(const Qiven &) = delete;

    bool Decode(size_t i) {
        const std::string &bytes = packets[i].bytes;
        return QIVENPacketRead(nullptr, reinterpret_cast<const unsigned char *>(bytes.data()),
                               static_cast<int>(bytes.size()), &record) > 0;
    }
    size_t Encode(size_t i) {
        return static_cast<size_t>(QIVENPacketWrite(nullptr, &pOutput, &cbOutput, &packets[i].send));
    }

    const Packets &packets;
    nasinfo record;
    int cbOutput = QIVEN_PACKET_MAX;
    unsigned char *pOutput = static_cast<unsigned char *>(malloc(QIVEN_PACKET_MAX));
};

template <class Codec>
void Decode(benchmark::State &state, const Packets &packets) {
    const auto codec = std::make_unique<Codec>(packets);
    size_t i = 0;
    for (auto _ : state) {
        bool blDone = codec->Decode(i);
        benchmark::DoNotOptimize(blDone);
        benchmark::ClobberMemory();
        if (++i == packets.size()) i = 0;
    }
}

template <class Codec>
void Encode(benchmark::State &state, const Packets &packets) {
    const auto codec = std::make_unique<Codec>(packets);
    size_t i = 0;
    for (auto _ : state) {
        size_t cb = codec->Encode(i);
        benchmark::DoNotOptimize(cb);
        benchmark::ClobberMemory();
        if (++i == packets.size()) i = 0;
    }
}

template <class Codec>
void Register(const std::string &who) {
    struct Work {
        const char *szName;
        const Packets &packets;
        bool blEncode;
    };
    const Work works[] = {{"query", Query(), false},
                          {"typical", Typical(), true},
                          {"mixed", Mixed(), false},
                          {"fields64", Fields64(), true}};
    for (const Work &work : works) {
        benchmark::RegisterBenchmark(("decode/" + std::string(work.szName) + '/' + who).c_str(),
                                     Decode<Codec>, work.packets);
        if (work.blEncode)
            benchmark::RegisterBenchmark(("encode/" + std::string(work.szName) + '/' + who).c_str(),
                                         Encode<Codec>, work.packets);
    }
}

// Growth of a decode with the size of the packet.
void RegisterGrowth() {
    for (const size_t cb : {20, 64, 128, 256, 512, 1024, 2048, 4096, 8192}) {
        static std::vector<std::unique_ptr<Packets>> kept;
        kept.push_back(std::make_unique<Packets>(Packets{Sized(cb)}));
        const std::string name = "decode-growth/" + std::to_string(cb) + '/';
        benchmark::RegisterBenchmark((name + "qiven").c_str(), Decode<Qiven>, *kept.back());
        benchmark::RegisterBenchmark((name + "floor").c_str(), Decode<Floor>, *kept.back());
    }
}

}  // namespace

}  // namespace bench

int main(int argc, char **argv) {
    using namespace bench;
    benchmark::Initialize(&argc, argv);
    Register<Qiven>("qiven");
    Register<Floor>("floor");
    RegisterGrowth();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
