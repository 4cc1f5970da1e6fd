// Any text as the configuration of qiven answer: an accepted one can be
// announced, and written and read again.
#include <cstring>
#include <memory>

#include "../tools/qiven/answer/config.h"
#include "../tools/qiven/fields.h"
#include "fuzz.h"
#include "support/memory_file.h"
#include "support/slow_reader.h"

namespace {

using fuzz::Require;
using qiven::answer::Announcement;
using qiven::fields::Field;
using qiven::fields::Kind;

std::string Quoted(const std::string &text) {
    std::string quoted = "\"";
    for (const char c : text) {
        char szEscape[8] = {c, '\0'};
        const auto b = static_cast<unsigned char>(c);
        if (b < 0x20 || b == 0x7F || c == '"' || c == '\\') snprintf(szEscape, sizeof szEscape, "\\u%04X", b);
        quoted += szEscape;
    }
    return quoted + '"';
}

template <class List>
std::string Array(const List &list) {
    std::string array;
    for (const auto &element : list) {
        if constexpr (std::is_integral_v<typename List::value_type>)
            array += std::to_string(element) + ",";
        else
            array += Quoted(element) + ",\n";
    }
    return "[" + array + "]";
}

std::string Value(const nasinfo &record, const Field &field) {
    switch (field.kind) {
        case Kind::kText:
            return Quoted(qiven::fields::Text(record, field));
        case Kind::kNumber:
            return std::to_string(qiven::fields::Number(record, field));
        case Kind::kAddress:
            return Quoted(qiven::fields::Address(record, field));
        case Kind::kList:
            return Array(qiven::fields::List(record, field));
    }
    return "";
}

bool IsListed(const Announcement &announcement, const Field &field) {
    return std::any_of(field.ids.begin(), field.ids.end(), [&](uint32_t id) {
        return std::count(announcement.ids.begin(), announcement.ids.end(), id) > 0;
    });
}

// The configuration of an announcement.
std::string Said(const Announcement &announcement) {
    std::string text;
    for (const Field &field : qiven::fields::All()) {
        const bool blService = field.name.starts_with("services_");
        if (blService || field.name == "array_count" || !IsListed(announcement, field)) continue;
        text += field.name + " = " + Value(announcement.record, field) + "\n";
    }
    const nasinfo &record = announcement.record;
    const auto Lists = [&](uint32_t id) {
        return std::count(announcement.ids.begin(), announcement.ids.end(), id) > 0;
    };
    if (Lists(0xB0)) text += "services_supported = " + Array(qiven::fields::ServicesSupported(record)) + "\n";
    if (Lists(0xB8)) text += "services_running = " + Array(qiven::fields::ServicesRunning(record)) + "\n";
    return text;
}

std::optional<Announcement> Load(const MemoryFile &file, std::vector<std::string> &errors) {
    qiven::answer::ConfigSource source;
    source.path = file.Path();
    auto configuration = qiven::answer::Load(source, errors);
    if (!configuration) return std::nullopt;
    return configuration->announcement;
}

// Compares everything except padding, which copies of a record need not preserve.
bool SameFields(const nasinfo &one, const nasinfo &other) {
    return std::all_of(std::begin(kSlowFields), std::end(kSlowFields), [&](const SlowField &field) {
        const auto *pOne = reinterpret_cast<const char *>(&one) + field.cbOffset;
        const auto *pOther = reinterpret_cast<const char *>(&other) + field.cbOffset;
        return memcmp(pOne, pOther, field.cbWidth * (field.cKind == 'a' ? 32 : 1)) == 0;
    });
}

void RequireCanBeAnnounced(const Announcement &announcement) {
    nasinfo record = announcement.record;
    QIVEN_SEND send{&record, 0, {}};
    for (const uint32_t id : announcement.ids)
        Require(QIVENSendPktIDAdd(nullptr, &send, id, 0) == 1, "every identifier can be listed");
    int cbBuffer = QIVEN_PACKET_MAX;
    auto *pBuffer = static_cast<unsigned char *>(malloc(QIVEN_PACKET_MAX));
    const int cb = QIVENPacketWrite(nullptr, &pBuffer, &cbBuffer, &send);
    const std::unique_ptr<unsigned char, decltype(&free)> owner(pBuffer, free);
    Require(cb > 0, "what is announced can be written");
    const SlowReader slow(std::string(pBuffer, pBuffer + cb));
    Require(slow.iResult > 0, "what is announced is accepted by who reads it");
    if (record.szFieldC0[0] == '\0') strcpy(record.szFieldC0, record.szField73);  // as readers do
    Require(SameFields(record, slow.record), "what is announced arrives as it is");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const MemoryFile file(fuzz::AsText(pData, cbData));
    std::vector<std::string> errors;
    const std::optional<Announcement> announcement = Load(file, errors);
    Require(announcement.has_value() == errors.empty(), "there is an announcement or an error, never both");
    if (!announcement) return 0;
    RequireCanBeAnnounced(*announcement);
    const MemoryFile again(Said(*announcement));
    const std::optional<Announcement> same = Load(again, errors);
    Require(same.has_value() && same->ids == announcement->ids, "the same is listed when it is said again");
    Require(SameFields(same->record, announcement->record), "the same is announced when it is said again");
    return 0;
}
