#include "answer_config.h"

#include <fmt/format.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <utility>

#include "fields.h"
#include "text.h"

namespace qiven::answer {

namespace {

using fields::Field;
using fields::Kind;

constexpr int kSealedPlainMax = QIVEN_PACKET_MAX - 56;
// A list reader takes hosts from this second number up only.
constexpr uint32_t kSecondDefault = 240;
constexpr uint32_t kA4Default = 0x01020000;

struct Reading {
    const std::string &path;
    Announcement &announcement;
    std::vector<std::string> &errors;

    // Line 0 is for what no line of the file is to blame for.
    void Fail(uint32_t ulLine, std::string_view key, std::string_view what) {
        std::string where = text::Escape(path.empty() ? "command line" : path);
        if (ulLine != 0) where += fmt::format(":{}", ulLine);
        if (!key.empty()) where += ": " + text::Escape(key);
        errors.push_back(where + ": " + std::string(what));
    }
};

// The machine and the protocol fill these.
constexpr std::string_view kNotAnnounced[] = {
    "address",
    "address_13",
    "mac",
    "array_count",
    "public_key",
    "process_id",
    "peer_process_id",
    "services_supported_0",
    "services_supported_1",
    "services_running_0",
    "services_running_1",
};

void List(Announcement &announcement, uint32_t ulPktId) {
    std::vector<uint32_t> &ids = announcement.ids;
    if (std::find(ids.begin(), ids.end(), ulPktId) == ids.end()) ids.push_back(ulPktId);
}

void List(Announcement &announcement, const Field &field) {
    // A long text travels whole under the identifier that sends it in chunks.
    const bool blLong = std::find(field.ids.begin(), field.ids.end(), PKT_ID_LONG_TEXT) != field.ids.end();
    List(announcement, blLong ? PKT_ID_LONG_TEXT : field.ids.front());
}

// Each of these stores a value; the result says what the value must be when it is something else.
std::string StoreText(nasinfo &record, const Field &field, const toml::node &node) {
    const auto value = node.value_exact<std::string>();
    if (value && !value->empty() && fields::SetText(record, field, *value)) return {};
    return fmt::format("must be a text of 1 to {} bytes without NUL", fields::TextLimit(field));
}

std::string StoreNumber(nasinfo &record, const Field &field, const toml::node &node) {
    const auto value = node.value_exact<int64_t>();
    if (value && *value >= 0 && fields::SetNumber(record, field, static_cast<uint64_t>(*value))) return {};
    return "must be a whole number from 0 to 4294967295";
}

std::string StoreAddress(nasinfo &record, const Field &field, const toml::node &node) {
    const auto value = node.value_exact<std::string>();
    if (value && fields::SetAddress(record, field, *value)) return {};
    return "must be an IPv4 address like \"192.0.2.1\"";
}

std::string StoreList(nasinfo &record, const Field &field, const toml::node &node) {
    std::string must = fmt::format("must be a list of 1 to {} texts of 1 to {} bytes without NUL",
                                   QIVEN_ARRAY_MAX, fields::TextLimit(field));
    const toml::array *pArray = node.as_array();
    if (pArray == nullptr || pArray->empty()) return must;
    std::vector<std::string> list;
    for (const toml::node &element : *pArray) {
        const auto value = element.value_exact<std::string>();
        // An empty element would not travel, and the ones behind it would move up.
        if (!value || value->empty()) return must;
        list.push_back(*value);
    }
    if (!fields::SetList(record, field, list)) return must;
    // One count serves all lists.
    record.ulArrayCount = std::max(record.ulArrayCount, static_cast<uint32_t>(list.size()));
    return {};
}

std::string StoreField(nasinfo &record, const Field &field, const toml::node &node) {
    switch (field.kind) {
        case Kind::kText:
            return StoreText(record, field, node);
        case Kind::kNumber:
            return StoreNumber(record, field, node);
        case Kind::kAddress:
            return StoreAddress(record, field, node);
        case Kind::kList:
            return StoreList(record, field, node);
    }
    return "is of an unknown kind";
}

struct Services {
    std::string_view key;
    int (*pfnSet)(const QIVEN_LOG *, nasinfo *, unsigned int);
    std::array<uint32_t, 2> ids;
};
constexpr Services kServices[] = {
    {"services_supported", QIVENNasinfoServSuppSet, {0xB0, 0xB1}},
    {"services_running", QIVENNasinfoServRunSet, {0xB8, 0xB9}},
};

std::string StoreServices(Announcement &announcement, const Services &services, const toml::node &node) {
    std::string must = fmt::format("must be a list of service numbers from 0 to {}", QIVEN_SERVICE_MAX - 1);
    const toml::array *pArray = node.as_array();
    if (pArray == nullptr) return must;
    for (const toml::node &element : *pArray) {
        const auto value = element.value_exact<int64_t>();
        if (!value || *value < 0 || *value >= QIVEN_SERVICE_MAX) return must;
        services.pfnSet(nullptr, &announcement.record, static_cast<unsigned int>(*value));
    }
    for (const uint32_t ulPktId : services.ids)
        List(announcement, ulPktId);
    return {};
}

std::string Store(Announcement &announcement, std::string_view key, const toml::node &node) {
    for (const Services &services : kServices)
        if (services.key == key) return StoreServices(announcement, services, node);
    const Field *pField = fields::ByName(key);
    if (pField == nullptr) return "is not a key of this file";
    if (std::find(std::begin(kNotAnnounced), std::end(kNotAnnounced), key) != std::end(kNotAnnounced))
        return "is filled in by the program";
    std::string what = StoreField(announcement.record, *pField, node);
    if (what.empty() && key == "type" && announcement.record.ulPktType != QIVEN_PKT_ANSWER &&
        announcement.record.ulPktType != QIVEN_PKT_ANSWER_INST)
        what = "must be 2 or 6";
    if (what.empty()) List(announcement, *pField);
    if (what.empty() && pField->kind == Kind::kList) List(announcement, *fields::ByName("array_count"));
    return what;
}

void ReadFile(Reading &reading) {
    if (std::filesystem::is_directory(reading.path)) return reading.Fail(0, "", "is a directory");
    try {
        const toml::table table = toml::parse_file(reading.path);
        // A table is in the order of its keys, a reader's eye in that of the lines.
        std::multimap<uint32_t, std::pair<std::string, std::string>> faults;
        for (const auto &[key, node] : table) {
            const std::string what = Store(reading.announcement, key.str(), node);
            if (!what.empty()) faults.emplace(key.source().begin.line, std::pair(key.str(), what));
        }
        for (const auto &[ulLine, fault] : faults)
            reading.Fail(ulLine, fault.first, fault.second);
    } catch (const toml::parse_error &error) {
        reading.Fail(error.source().begin.line, "", text::Escape(error.description()));
    }
}

void StoreOption(Reading &reading, const char *szKey, const toml::node &node) {
    const std::string what = Store(reading.announcement, szKey, node);
    if (!what.empty()) reading.errors.push_back(fmt::format("command line: {}: {}", szKey, what));
}

void ReadOptions(Reading &reading, const Source &source) {
    if (source.name) StoreOption(reading, "name", toml::value(*source.name));
    if (source.ident) StoreOption(reading, "ident", toml::value(*source.ident));
    if (source.ulModel) StoreOption(reading, "model", toml::value(int64_t{*source.ulModel}));
    if (source.ulSecond) StoreOption(reading, "field_49", toml::value(int64_t{*source.ulSecond}));
}

// The machine's own name, without its domain.
std::string HostName() {
    std::array<char, 256> szName{};
    gethostname(szName.data(), szName.size() - 1);
    const std::string name = szName.data();
    return name.substr(0, std::min(name.find('.'), sizeof nasinfo::szHostName - 1));
}

void Complete(Reading &reading) {
    Announcement &announcement = reading.announcement;
    if (announcement.record.szHostName[0] == '\0') StoreOption(reading, "name", toml::value(HostName()));
    const bool blModel =
        std::find(announcement.ids.begin(), announcement.ids.end(), 0x48) != announcement.ids.end();
    if (!blModel) reading.Fail(0, "model", "is missing");
    for (const char *szKey : {"type", "field_a4", "field_49"})
        List(announcement, *fields::ByName(szKey));
    std::sort(announcement.ids.begin(), announcement.ids.end());
}

struct Free {
    void operator()(unsigned char *pb) const { free(pb); }
};

// Builds the largest packet that will ever be made of this, and reads it as a searcher will.
void CheckPacket(Reading &reading) {
    Announcement full = reading.announcement;
    for (const uint32_t ulPktId : {kIdAddress, kIdMask, kIdMac, kIdProcess, kIdPeerProcess})
        full.ids.push_back(ulPktId);
    full.record.ulPktType = QIVEN_PKT_ANSWER;
    fields::SetText(full.record, *fields::ByName("mac"), "00:00:00:00:00:00");
    QIVEN_SEND send{};
    send.pnasInfo = &full.record;
    for (const uint32_t ulPktId : full.ids)
        QIVENSendPktIDAdd(nullptr, &send, ulPktId, 0U);
    int cbCapacity = QIVEN_PACKET_MAX;
    unsigned char *pbPacket = static_cast<unsigned char *>(malloc(QIVEN_PACKET_MAX));
    const int cbPacket = QIVENPacketWrite(nullptr, &pbPacket, &cbCapacity, &send);
    const std::unique_ptr<unsigned char, Free> owner(pbPacket);
    if (cbPacket == 0 || cbPacket > kSealedPlainMax) {
        reading.Fail(0, "", fmt::format("all this does not fit a packet of {} bytes", kSealedPlainMax));
        return;
    }
    nasinfo record;
    if (QIVENPacketRead(nullptr, pbPacket, cbPacket, &record) > 0) return;
    reading.Fail(0, "",
                 fmt::format("a packet carries {} fields at most; every list element and every 255 bytes of "
                             "long text are one, and the program adds {}",
                             QIVEN_FIELDS_MAX, full.ids.size() - reading.announcement.ids.size()));
}

}  // namespace

std::optional<Announcement> Load(const Source &source, std::vector<std::string> &errors) {
    Announcement announcement;
    announcement.record.ulPktType = QIVEN_PKT_ANSWER;
    announcement.record.ulFieldA4 = kA4Default;
    announcement.record.ulField49 = kSecondDefault;
    const size_t uBefore = errors.size();
    Reading reading{source.path, announcement, errors};
    if (!source.path.empty()) ReadFile(reading);
    ReadOptions(reading, source);
    if (errors.size() == uBefore) Complete(reading);
    if (errors.size() == uBefore) CheckPacket(reading);
    if (errors.size() != uBefore) return std::nullopt;
    return announcement;
}

}  // namespace qiven::answer
