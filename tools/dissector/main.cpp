// Fills the template of Wireshark's dissector with the library's field table, so that both always agree.
// Usage: make-dissector TEMPLATE OUTPUT
#include <qiven/keys.h>
#include <qiven/packet.h>
#include <qiven/udp.h>

#include <fmt/format.h>

#include <cstddef>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <string>

#include "fields.h"

namespace {

constexpr char kMarker[] = "-- @TABLES@\n";

// How the dissector shows the values of an identifier.
const char *KindOf(const QIVEN_FIELD_ATTRIB &attrib) {
    if (attrib.ulPktId == PKT_ID_CONTINUATION) return "continuation";
    if (attrib.ulType == FIELD_NONE) return "none";
    if (attrib.ulOffset == offsetof(nasinfo, szMacAddr)) return "mac";
    switch (qiven::fields::ById(attrib.ulPktId)->kind) {
        case qiven::fields::Kind::kText:
            return "text";
        case qiven::fields::Kind::kList:
            return "list";
        case qiven::fields::Kind::kAddress:
            return "address";
        case qiven::fields::Kind::kNumber:
            break;
    }
    return attrib.cbField == sizeof(uint64_t) ? "number64" : "number";
}

std::string NameOf(const QIVEN_FIELD_ATTRIB &attrib) {
    const bool blContinues = attrib.ulPktId == PKT_ID_CONTINUATION;
    return qiven::fields::NameOfId(blContinues ? uint32_t{PKT_ID_LONG_TEXT} : attrib.ulPktId);
}

std::string HeaderText(const unsigned char (&rgbHeader)[8]) {
    std::string digits;
    for (const unsigned char b : rgbHeader)
        digits += fmt::format("{:02x}", b);
    return digits;
}

// The bits of a mask as a set.
std::string BitSet(uint32_t ulMask) {
    std::string lua;
    for (uint32_t ulBit = 1; ulBit != 0 && ulBit <= ulMask; ulBit <<= 1) {
        if ((ulMask & ulBit) != 0)
            lua += fmt::format("{}[0x{:02X}] = true", lua.empty() ? "{ " : ", ", ulBit);
    }
    return lua + " }";
}

std::string Tables() {
    std::string lua;
    for (const auto &[szName, ulValue] : {std::pair{"PORT", unsigned{QIVEN_PORT}},
                                          {"PACKET_MAX", unsigned{QIVEN_PACKET_MAX}},
                                          {"FIELDS_MAX", unsigned{QIVEN_FIELDS_MAX}},
                                          {"ARRAY_MAX", unsigned{QIVEN_ARRAY_MAX}},
                                          {"LONG_TEXT_CAPACITY", unsigned{QIVEN_LONG_TEXT_SIZE}},
                                          {"SEAL_KEY_SIZE", unsigned{QIVEN_KEY_SIZE}},
                                          {"SEAL_SIZE", unsigned{QIVEN_SEAL_OVERHEAD}},
                                          {"TYPE_QUERY", unsigned{QIVEN_PKT_QUERY}},
                                          {"TYPE_ANSWER", unsigned{QIVEN_PKT_ANSWER}},
                                          {"TYPE_NETSETTING", unsigned{QIVEN_PKT_NETSETTING}},
                                          {"TYPE_ANSWER_INST", unsigned{QIVEN_PKT_ANSWER_INST}}})
        lua += fmt::format("local {} = {}\n", szName, ulValue);
    lua += fmt::format("local BASIC = {}\nlocal NETSETTING = {}\n", BitSet(QIVEN_BASIC_MASK),
                       BitSet(QIVEN_NETSETTING_MASK));
    lua += fmt::format("local HEADER_SIZE = {}\n", QIVENHeaderSize);
    lua += fmt::format("local PLAIN_HEADER = \"{}\"\n", HeaderText(stQIVENHeader));
    lua +=
        fmt::format("local SEALED_HEADER = \"{}\"\n\nlocal TABLE = {{\n", HeaderText(stQIVENHeaderEncrypted));
    for (const QIVEN_FIELD_ATTRIB &attrib : grgfieldAttribs) {
        lua += fmt::format(
            "    {{ id = 0x{:02X}, name = \"{}\", kind = \"{}\", width = {}, bit = 0x{:02X} }},\n",
            attrib.ulPktId, NameOf(attrib), KindOf(attrib), attrib.cbField, attrib.ulBasicMask);
    }
    return lua + "}\n";
}

bool Make(const char *szTemplate, const char *szOutput) {
    std::ifstream in(szTemplate);
    std::string text{std::istreambuf_iterator<char>(in), {}};
    const size_t iMarker = text.find(kMarker);
    if (iMarker == std::string::npos) {
        fmt::print(stderr, "make-dissector: {}: no line {}", szTemplate, kMarker);
        return false;
    }
    text.replace(iMarker, sizeof kMarker - 1, Tables());
    std::ofstream out(szOutput);
    out << text << std::flush;
    if (!out) fmt::print(stderr, "make-dissector: cannot write {}\n", szOutput);
    return bool{out};
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        fputs("usage: make-dissector TEMPLATE OUTPUT\n", stderr);
        return 2;
    }
    try {
        return Make(argv[1], argv[2]) ? 0 : 1;
    } catch (const std::exception &error) {
        fprintf(stderr, "make-dissector: %s\n", error.what());
        return 1;
    }
}
