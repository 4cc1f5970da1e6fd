#include "peers.h"

#include <pb_decode.h>
#include <pb_encode.h>
#include <rapidjson/reader.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <charconv>

namespace bench {

namespace {

// A slot by identifier in one step, as our own reader finds it.
const QIVEN_FIELD_ATTRIB *SlotById(unsigned int ulPktId) {
    static const auto index = [] {
        std::array<const QIVEN_FIELD_ATTRIB *, PKT_ID_MAX> made{};
        for (const QIVEN_FIELD_ATTRIB &attrib : grgfieldAttribs)
            made[attrib.ulPktId] = &attrib;
        return made;
    }();
    return ulPktId < PKT_ID_MAX ? index[ulPktId] : nullptr;
}

uint64_t Number(const nasinfo &record, const QIVEN_FIELD_ATTRIB &attrib) {
    uint64_t ullValue = 0;
    memcpy(&ullValue, SlotOf(record, attrib), attrib.cbField);  // little-endian machines
    return ullValue;
}

// The last step of a reader: the fields that every packet has, and the one that has a default. The record is
// not asked for what is known without it: its clearing may still be under way.
bool AcceptRecord(nasinfo &record, uint32_t ulMarks, bool blField73) {
    if (blField73 && record.szFieldC0[0] == '\0')
        memcpy(record.szFieldC0, record.szField73, sizeof record.szField73);
    return (ulMarks & 3) == 3;
}

// What the record promises its reader of a text, whoever sent it: it fits, ends at its first NUL, and has
// one.
bool PutText(char *pSlot, size_t cbSlot, const char *sz, size_t cb) {
    if (cb >= cbSlot) return false;
    const size_t cbText = strnlen(sz, cb);
    memcpy(pSlot, sz, cbText);
    pSlot[cbText] = '\0';
    return true;
}

// Puts the values of a self-describing format into the record, whatever the format is, by the rules of our
// own reader.
struct Store {
    nasinfo &record;
    const QIVEN_FIELD_ATTRIB *pAttrib = nullptr;
    size_t nElement = 0;
    uint32_t ulMarks = 0;
    bool blField73 = false;
    int nFields = 0;

    explicit Store(nasinfo &cleared) : record(cleared) { memset(&record, 0, sizeof record); }

    bool Key(unsigned int ulPktId) {
        pAttrib = SlotById(ulPktId);
        nElement = 0;
        if (pAttrib != nullptr) ulMarks |= pAttrib->ulBasicMask;
        blField73 |= ulPktId == 0x73;
        return ++nFields < QIVEN_FIELDS_MAX + 1;
    }
    // A field that nobody knows is passed over, here and below.
    bool Integer(uint64_t ullValue) {
        if (pAttrib == nullptr) return true;
        if (pAttrib->ulType != FIELD_INTEGER) return false;
        if (pAttrib->cbField == sizeof(uint32_t)) {
            const auto ulValue = static_cast<uint32_t>(ullValue);
            memcpy(SlotOf(record, *pAttrib), &ulValue, sizeof ulValue);
        } else {
            memcpy(SlotOf(record, *pAttrib), &ullValue, sizeof ullValue);
        }
        return true;
    }
    bool Text(const char *sz, size_t cb) {
        if (pAttrib == nullptr) return true;
        if (pAttrib->ulType == FIELD_INTEGER) return false;
        if (nElement >= (pAttrib->ulType == FIELD_ARRAY ? QIVEN_ARRAY_MAX : 1)) return false;
        return PutText(SlotOf(record, *pAttrib) + nElement++ * pAttrib->cbField, pAttrib->cbField, sz, cb);
    }
    bool Accept() { return AcceptRecord(record, ulMarks, blField73); }
};

// Tells a writer every value that a packet lists; false when one of them cannot be told.
template <class Writer>
bool WriteAll(const Packet &packet, Writer &&writer) {
    const nasinfo &record = *packet.record;
    for (int32_t i = 0; i < packet.send.nPktID; ++i) {
        const QIVEN_FIELD_ATTRIB *pAttrib = SlotById(packet.send.rgPktID[i]);
        if (pAttrib == nullptr) return false;
        const char *pSlot = SlotOf(record, *pAttrib);
        const size_t cbSlot = pAttrib->cbField;
        writer.Key(pAttrib->ulPktId);
        if (pAttrib->ulType == FIELD_INTEGER) {
            writer.Integer(Number(record, *pAttrib));
            continue;
        }
        if (pAttrib->ulType == FIELD_STRING) {
            const size_t cbText = strnlen(pSlot, cbSlot);
            if (cbText == cbSlot) return false;
            writer.Text(pSlot, cbText);
            continue;
        }
        const size_t nElements = std::min<size_t>(record.ulArrayCount, QIVEN_ARRAY_MAX);
        size_t nFilled = 0;
        for (size_t n = 0; n < nElements; ++n)
            nFilled += pSlot[n * cbSlot] != '\0';
        writer.Begin(nFilled);
        for (size_t n = 0; n < nElements; ++n, pSlot += cbSlot) {
            if (*pSlot == '\0') continue;
            const size_t cbText = strnlen(pSlot, cbSlot);
            if (cbText == cbSlot) return false;
            writer.Text(pSlot, cbText);
        }
        writer.End();
    }
    return true;
}

// Fills a generated message through its description: for set-up and proof, far too slow to be measured.
struct ToMessage {
    Host &host;
    const google::protobuf::FieldDescriptor *pField = nullptr;

    void Key(unsigned int ulPktId) {
        pField = Host::descriptor()->FindFieldByNumber(static_cast<int>(ulPktId));
    }
    void Integer(uint64_t ullValue) const {
        const auto *pReflection = Host::GetReflection();
        if (pField->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_UINT64)
            pReflection->SetUInt64(&host, pField, ullValue);
        else
            pReflection->SetUInt32(&host, pField, static_cast<uint32_t>(ullValue));
    }
    void Text(const char *sz, size_t cb) const {
        if (pField->is_repeated())
            Host::GetReflection()->AddString(&host, pField, std::string(sz, cb));
        else
            Host::GetReflection()->SetString(&host, pField, std::string(sz, cb));
    }
    void Begin(size_t) {}
    void End() {}
};

template <class Peer>
std::string EncodedBy(Peer &peer, size_t i) {
    const size_t cb = peer.Encode(i);
    if (cb == 0) Fail("a peer cannot encode");
    return {peer.output.pBuffer, cb};
}

}  // namespace

// protobuf

Protobuf::Protobuf(const Packets &p) : packets(p) {
    for (const Packet &packet : packets) {
        Host &made = records.emplace_back();
        if (!WriteAll(packet, ToMessage{made})) Fail("no message");
    }
    for (size_t i = 0; i < packets.size(); ++i) {
        encoded.push_back(EncodedBy(*this, i));
        if (!Decode(i)) Fail("protobuf cannot decode");
        DemandEqual(record, *packets[i].record, "protobuf");
        if (Serialize(records[i]) != encoded[i].size()) Fail("protobuf encodes something else");
    }
}

// From the message into the record's slots, as a caller who wants such a record has to.
bool Protobuf::ToRecord() {
    memset(&record, 0, sizeof record);
    bool blFits = true;
#define NUMBER(id, slot, field) \
    if (host.has_##field()) record.slot = host.field();
#define TEXT(id, slot, field) \
    if (host.has_##field())   \
        blFits &= PutText(record.slot, sizeof record.slot, host.field().data(), host.field().size());
#define TEXTS(id, slot, field)                                               \
    for (int n = 0; n < std::min(host.field##_size(), QIVEN_ARRAY_MAX); ++n) \
        blFits &= PutText(record.slot[n], sizeof record.slot[n], host.field(n).data(), host.field(n).size());
#include "host_slots.inc"
#undef NUMBER
#undef TEXT
#undef TEXTS
    return blFits &&
           AcceptRecord(record, host.has_ulpkttype() && host.has_ulfielda4() ? 3 : 0, host.has_szfield73());
}

bool Protobuf::FromRecord(const Packet &packet) {
    const nasinfo &from = *packet.record;
    host.Clear();
    for (int32_t i = 0; i < packet.send.nPktID; ++i) {
        switch (packet.send.rgPktID[i]) {
#define NUMBER(id, slot, field)      \
    case id:                         \
        host.set_##field(from.slot); \
        break;
#define TEXT(id, slot, field)                                              \
    case id:                                                               \
        host.set_##field(from.slot, strnlen(from.slot, sizeof from.slot)); \
        break;
#define TEXTS(id, slot, field)                                                                \
    case id:                                                                                  \
        for (uint32_t n = 0; n < std::min<uint32_t>(from.ulArrayCount, QIVEN_ARRAY_MAX); ++n) \
            if (from.slot[n][0] != '\0')                                                      \
                host.add_##field(from.slot[n], strnlen(from.slot[n], sizeof from.slot[n]));   \
        break;
#include "host_slots.inc"
#undef NUMBER
#undef TEXT
#undef TEXTS
            default:
                return false;
        }
    }
    return true;
}

size_t Protobuf::Serialize(const Host &made) {
    // Nothing is written unless all of it fits: no need to build it aside.
    if (!made.SerializeToArray(output.pBuffer, static_cast<int>(output.cbBuffer))) return 0;
    return static_cast<size_t>(made.GetCachedSize());
}

// nanopb

Nanopb::Nanopb(const Packets &packets) {
    const Protobuf same(packets);
    records.resize(packets.size());
    for (size_t i = 0; i < packets.size(); ++i) {
        encoded.push_back(same.encoded[i]);
        if (!Decode(i)) Fail("nanopb cannot decode");
        records[i] = host;
        if (EncodedBy(*this, i) != same.encoded[i]) Fail("nanopb encodes something else");
    }
}

bool Nanopb::Decode(size_t i) {
    // Cleared at once, which is faster than field by field as pb_decode would.
    memset(&host, 0, sizeof host);
    const std::string &bytes = encoded[i];
    pb_istream_t stream =
        pb_istream_from_buffer(reinterpret_cast<const pb_byte_t *>(bytes.data()), bytes.size());
    return pb_decode_ex(&stream, bench_Host_fields, &host, PB_DECODE_NOINIT);
}

size_t Nanopb::Encode(size_t i) {
    pb_ostream_t stream = pb_ostream_from_buffer(buffer, sizeof buffer);
    if (!pb_encode(&stream, bench_Host_fields, &records[i])) return 0;
    return output.Take(reinterpret_cast<char *>(buffer), stream.bytes_written);
}

// msgpack: a map from identifiers to values

namespace {

struct MsgpackVisitor : msgpack::null_visitor {
    Store store;
    bool blKey = false;

    explicit MsgpackVisitor(nasinfo &record) : store(record) {}
    bool start_map_key() {
        blKey = true;
        return true;
    }
    bool end_map_key() {
        blKey = false;
        return true;
    }
    bool visit_positive_integer(uint64_t ullValue) {
        return blKey ? store.Key(static_cast<unsigned int>(ullValue)) : store.Integer(ullValue);
    }
    bool visit_str(const char *sz, uint32_t cb) { return store.Text(sz, cb); }
    static void parse_error(size_t, size_t) {}
    static void insufficient_bytes(size_t, size_t) {}
};

struct MsgpackWriter {
    msgpack::packer<msgpack::sbuffer> packer;

    void Key(unsigned int ulPktId) { packer.pack_uint32(ulPktId); }
    void Integer(uint64_t ullValue) { packer.pack_uint64(ullValue); }
    void Text(const char *sz, size_t cb) {
        packer.pack_str(static_cast<uint32_t>(cb));
        packer.pack_str_body(sz, static_cast<uint32_t>(cb));
    }
    void Begin(size_t n) { packer.pack_array(static_cast<uint32_t>(n)); }
    void End() {}
};

}  // namespace

Msgpack::Msgpack(const Packets &p) : packets(p) {
    for (size_t i = 0; i < packets.size(); ++i) {
        encoded.push_back(EncodedBy(*this, i));
        if (!Decode(i)) Fail("msgpack cannot decode");
        DemandEqual(record, *packets[i].record, "msgpack");
    }
}

bool Msgpack::Decode(size_t i) {
    MsgpackVisitor visitor(record);
    return msgpack::parse(encoded[i].data(), encoded[i].size(), visitor) && visitor.store.Accept();
}

size_t Msgpack::Encode(size_t i) {
    buffer.clear();
    MsgpackWriter writer{msgpack::packer<msgpack::sbuffer>(buffer)};
    writer.packer.pack_map(static_cast<uint32_t>(packets[i].send.nPktID));
    if (!WriteAll(packets[i], writer)) return 0;
    return output.Take(buffer.data(), buffer.size());
}

// JSON: an object whose names are the identifiers

namespace {

struct JsonHandler : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, JsonHandler> {
    Store store;

    explicit JsonHandler(nasinfo &record) : store(record) {}
    static bool Default() { return false; }
    static bool StartObject() { return true; }
    static bool EndObject(rapidjson::SizeType) { return true; }
    static bool StartArray() { return true; }
    static bool EndArray(rapidjson::SizeType) { return true; }
    bool Key(const char *sz, rapidjson::SizeType cb, bool) {
        unsigned int ulPktId = 0;
        return std::from_chars(sz, sz + cb, ulPktId).ec == std::errc() && store.Key(ulPktId);
    }
    bool Uint(unsigned ulValue) { return store.Integer(ulValue); }
    bool Int(int iValue) { return store.Integer(static_cast<unsigned>(iValue)); }
    bool Uint64(uint64_t ullValue) { return store.Integer(ullValue); }
    bool Int64(int64_t illValue) { return store.Integer(static_cast<uint64_t>(illValue)); }
    bool String(const char *sz, rapidjson::SizeType cb, bool) { return store.Text(sz, cb); }
};

struct JsonWriter {
    rapidjson::Writer<rapidjson::StringBuffer> writer;

    void Key(unsigned int ulPktId) {
        char szKey[8];
        const auto end = std::to_chars(szKey, szKey + sizeof szKey, ulPktId);
        writer.Key(szKey, static_cast<rapidjson::SizeType>(end.ptr - szKey));
    }
    void Integer(uint64_t ullValue) { writer.Uint64(ullValue); }
    void Text(const char *sz, size_t cb) { writer.String(sz, static_cast<rapidjson::SizeType>(cb)); }
    void Begin(size_t) { writer.StartArray(); }
    void End() { writer.EndArray(); }
};

}  // namespace

Rapidjson::Rapidjson(const Packets &p) : packets(p) {
    for (size_t i = 0; i < packets.size(); ++i) {
        encoded.push_back(EncodedBy(*this, i));
        if (!Decode(i)) Fail("rapidjson cannot decode");
        DemandEqual(record, *packets[i].record, "rapidjson");
    }
}

bool Rapidjson::Decode(size_t i) {
    JsonHandler handler(record);
    rapidjson::Reader reader;
    rapidjson::MemoryStream stream(encoded[i].data(), encoded[i].size());
    return !reader.Parse(stream, handler).IsError() && handler.store.Accept();
}

size_t Rapidjson::Encode(size_t i) {
    buffer.Clear();
    JsonWriter json{rapidjson::Writer<rapidjson::StringBuffer>(buffer)};
    json.writer.StartObject();
    if (!WriteAll(packets[i], json)) return 0;
    json.writer.EndObject();
    return output.Take(buffer.GetString(), buffer.GetSize());
}

}  // namespace bench
