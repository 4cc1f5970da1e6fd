// Other ways to put the same record into bytes and back. Each holds one record per packet and one buffer,
// which it uses again and again, and reads into a record of the same slots: nanopb into the structure that it
// generates, the others into the host record itself.
#pragma once

#include <cstdlib>

#include "host.pb.h"
#include "packets.h"

extern "C" {
#include "host.nano.h"
}

#include <rapidjson/stringbuffer.h>
#include <msgpack.hpp>

namespace bench {

// The caller's heap buffer, which grows when a packet is longer, and stays as it was unless all of it could
// be built.
struct Output {
    Output() = default;
    ~Output() { free(pBuffer); }
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    size_t Take(const char *pBuilt, size_t cb) {
        if (cb > cbBuffer) {
            void *pLarger = realloc(pBuffer, cb);
            if (pLarger == nullptr) return 0;
            pBuffer = static_cast<char *>(pLarger);
            cbBuffer = cb;
        }
        memcpy(pBuffer, pBuilt, cb);
        return cb;
    }

    size_t cbBuffer = QIVEN_PACKET_MAX * 2;
    char *pBuffer = static_cast<char *>(malloc(cbBuffer));
};

struct Protobuf {
    explicit Protobuf(const Packets &packets);
    bool Decode(size_t i) { return host.ParseFromString(encoded[i]) && ToRecord(); }
    size_t Encode(size_t i) { return FromRecord(packets[i]) ? Serialize(host) : 0; }
    bool ToRecord();
    bool FromRecord(const Packet &packet);
    size_t Serialize(const Host &made);

    const Packets &packets;
    std::vector<std::string> encoded;
    std::vector<Host> records;
    Host host;  // reused, so that its strings keep their memory
    nasinfo record;
    Output output;
};

// To and from protobuf's own message only. Its texts lie each in a place of its own: not the same record.
struct ProtobufMessage : Protobuf {
    using Protobuf::Protobuf;
    bool Decode(size_t i) { return host.ParseFromString(encoded[i]); }
    size_t Encode(size_t i) { return Serialize(records[i]); }
};

struct Nanopb {
    explicit Nanopb(const Packets &packets);
    bool Decode(size_t i);
    size_t Encode(size_t i);

    std::vector<std::string> encoded;
    std::vector<bench_Host> records;
    bench_Host host{};
    unsigned char buffer[QIVEN_PACKET_MAX * 2];
    Output output;
};

struct Msgpack {
    explicit Msgpack(const Packets &packets);
    bool Decode(size_t i);
    size_t Encode(size_t i);

    const Packets &packets;
    std::vector<std::string> encoded;
    nasinfo record;
    msgpack::sbuffer buffer{QIVEN_PACKET_MAX * 2};
    Output output;
};

struct Rapidjson {
    explicit Rapidjson(const Packets &packets);
    bool Decode(size_t i);
    size_t Encode(size_t i);

    const Packets &packets;
    std::vector<std::string> encoded;
    nasinfo record;
    rapidjson::StringBuffer buffer;
    Output output;
};

}  // namespace bench
