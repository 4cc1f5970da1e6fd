// Other ways to put the same record into bytes and back. Each holds one record per packet and one buffer,
// which it uses again and again, and reads into a record of the same slots: protobuf and nanopb into the
// structures that they generate, the others into the host record itself.
#pragma once

#include "host.pb.h"
#include "packets.h"

extern "C" {
#include "host.nano.h"
}

#include <rapidjson/stringbuffer.h>
#include <msgpack.hpp>

namespace bench {

struct Protobuf {
    explicit Protobuf(const Packets &packets);
    bool Decode(size_t i) { return host.ParseFromString(encoded[i]); }
    size_t Encode(size_t i);

    std::vector<std::string> encoded;
    std::vector<Host> records;
    Host host;  // reused, so that its strings keep their memory
    std::string buffer;
};

struct Nanopb {
    explicit Nanopb(const Packets &packets);
    bool Decode(size_t i);
    size_t Encode(size_t i);

    std::vector<std::string> encoded;
    std::vector<bench_Host> records;
    bench_Host host{};
    unsigned char buffer[QIVEN_PACKET_MAX * 2];
};

struct Msgpack {
    explicit Msgpack(const Packets &packets);
    bool Decode(size_t i);
    size_t Encode(size_t i);

    const Packets &packets;
    std::vector<std::string> encoded;
    nasinfo record;
    msgpack::sbuffer buffer{QIVEN_PACKET_MAX * 2};
};

struct Rapidjson {
    explicit Rapidjson(const Packets &packets);
    bool Decode(size_t i);
    size_t Encode(size_t i);

    const Packets &packets;
    std::vector<std::string> encoded;
    nasinfo record;
    rapidjson::StringBuffer buffer;
};

}  // namespace bench
