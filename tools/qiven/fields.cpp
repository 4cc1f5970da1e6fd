#include "fields.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>

namespace qiven::fields {

namespace {

struct SlotName {
    size_t uOffset;
    const char *szName;
};

constexpr SlotName kNames[] = {
    {offsetof(nasinfo, ulPktType), "type"},
    {offsetof(nasinfo, szHostName), "name"},
    {offsetof(nasinfo, szHostIdent), "ident"},
    {offsetof(nasinfo, szMacAddr), "mac"},
    {offsetof(nasinfo, szLongText), "long_text"},
    {offsetof(nasinfo, ulIP), "address"},
    {offsetof(nasinfo, ulModel), "model"},
    {offsetof(nasinfo, ullServSupp0), "services_supported_0"},
    {offsetof(nasinfo, ullServSupp1), "services_supported_1"},
    {offsetof(nasinfo, ullServRun0), "services_running_0"},
    {offsetof(nasinfo, ullServRun1), "services_running_1"},
    {offsetof(nasinfo, ulArrayCount), "array_count"},
    {offsetof(nasinfo, szPubKeyHex), "public_key"},
    {offsetof(nasinfo, ulProcessID), "process_id"},
    {offsetof(nasinfo, ulPeerProcessID), "peer_process_id"},
};

// Numbers of 32 bits that are sent in network order are addresses.
Kind KindOf(const QIVEN_FIELD_ATTRIB &attrib) {
    if (attrib.ulType == FIELD_STRING) return Kind::kText;
    if (attrib.ulType == FIELD_ARRAY) return Kind::kList;
    return attrib.ulEndian == QIVENPKT_KEEP_ENDIAN ? Kind::kAddress : Kind::kNumber;
}

std::string MakeName(const QIVEN_FIELD_ATTRIB &attrib) {
    for (const SlotName &name : kNames)
        if (name.uOffset == attrib.ulOffset) return name.szName;
    const char *szPrefix = KindOf(attrib) == Kind::kAddress ? "address" : "field";
    return fmt::format("{}_{:02x}", szPrefix, attrib.ulPktId);
}

std::vector<Field> MakeFields() {
    std::vector<Field> fields;
    for (const QIVEN_FIELD_ATTRIB &attrib : grgfieldAttribs) {
        if (attrib.ulType == FIELD_NONE) continue;
        const auto same = std::find_if(fields.begin(), fields.end(),
                                       [&](const Field &field) { return field.ulOffset == attrib.ulOffset; });
        if (same != fields.end()) {
            same->ids.push_back(attrib.ulPktId);
        } else {
            fields.push_back(
                {MakeName(attrib), KindOf(attrib), attrib.ulOffset, attrib.cbField, {attrib.ulPktId}});
        }
    }
    return fields;
}

const char *Slot(const nasinfo &record, const Field &field) {
    return reinterpret_cast<const char *>(&record) + field.ulOffset;
}
char *Slot(nasinfo &record, const Field &field) {
    return reinterpret_cast<char *>(&record) + field.ulOffset;
}

std::string ReadText(const char *pText, size_t cbText) {
    return {pText, strnlen(pText, cbText)};
}

bool Fits(const Field &field, std::string_view text) {
    return text.size() <= TextLimit(field) && text.find('\0') == std::string_view::npos;
}

void WriteText(char *pSlot, size_t cbSlot, std::string_view text) {
    memset(pSlot, 0, cbSlot);
    text.copy(pSlot, text.size());
}

using GetFlag = int (*)(const QIVEN_LOG *, const nasinfo *, unsigned int);

std::vector<uint64_t> Services(const nasinfo &record, GetFlag pfnGet) {
    std::vector<uint64_t> services;
    for (unsigned int id = 0; id < QIVEN_SERVICE_MAX; ++id)
        if (pfnGet(nullptr, &record, id) == 1) services.push_back(id);
    return services;
}

}  // namespace

const std::vector<Field> &All() {
    static const std::vector<Field> fields = MakeFields();
    return fields;
}

const Field *ByName(std::string_view name) {
    for (const Field &field : All())
        if (field.name == name) return &field;
    return nullptr;
}

const Field *ById(uint32_t ulPktId) {
    for (const Field &field : All())
        if (std::find(field.ids.begin(), field.ids.end(), ulPktId) != field.ids.end()) return &field;
    return nullptr;
}

std::string NameOfId(uint32_t ulPktId) {
    const Field *pField = ById(ulPktId);
    return pField != nullptr ? pField->name : fmt::format("field_{:02x}", ulPktId);
}

size_t TextLimit(const Field &field) {
    // The long text is sent in chunks, and a reader does not fill the last bytes of its slot.
    constexpr size_t kLongText = QIVEN_LONG_TEXT_SIZE - 1;
    constexpr size_t kOneField = UINT8_MAX;  // the length is one byte
    const bool blLong =
        std::find(field.ids.begin(), field.ids.end(), uint32_t{PKT_ID_LONG_TEXT}) != field.ids.end();
    return std::min<size_t>(field.cbField - 1, blLong ? kLongText : kOneField);
}

std::string Text(const nasinfo &record, const Field &field) {
    return ReadText(Slot(record, field), field.cbField);
}

uint64_t Number(const nasinfo &record, const Field &field) {
    if (field.cbField == sizeof(uint64_t)) {
        uint64_t ullValue = 0;
        memcpy(&ullValue, Slot(record, field), sizeof ullValue);
        return ullValue;
    }
    uint32_t ulValue = 0;
    memcpy(&ulValue, Slot(record, field), sizeof ulValue);
    return ulValue;
}

std::string Address(const nasinfo &record, const Field &field) {
    return Dotted(static_cast<uint32_t>(Number(record, field)));
}

std::vector<std::string> List(const nasinfo &record, const Field &field) {
    std::vector<std::string> list;
    for (size_t i = 0; i < QIVEN_ARRAY_MAX; ++i)
        list.push_back(ReadText(Slot(record, field) + i * field.cbField, field.cbField));
    while (!list.empty() && list.back().empty())
        list.pop_back();
    return list;
}

bool HasValue(const nasinfo &record, const Field &field) {
    switch (field.kind) {
        case Kind::kText:
            return *Slot(record, field) != '\0';
        case Kind::kList:
            return !List(record, field).empty();
        case Kind::kNumber:
        case Kind::kAddress:
            break;
    }
    return Number(record, field) != 0;
}

bool SetText(nasinfo &record, const Field &field, std::string_view text) {
    if (!Fits(field, text)) return false;
    WriteText(Slot(record, field), field.cbField, text);
    return true;
}

bool SetNumber(nasinfo &record, const Field &field, uint64_t ullValue) {
    if (field.cbField == sizeof ullValue) {
        memcpy(Slot(record, field), &ullValue, sizeof ullValue);
        return true;
    }
    if (ullValue > std::numeric_limits<uint32_t>::max()) return false;
    const auto ulValue = static_cast<uint32_t>(ullValue);
    memcpy(Slot(record, field), &ulValue, sizeof ulValue);
    return true;
}

bool SetAddress(nasinfo &record, const Field &field, const std::string &address) {
    const std::optional<uint32_t> ulAddress = FromDotted(address);
    return ulAddress && SetNumber(record, field, *ulAddress);
}

bool SetList(nasinfo &record, const Field &field, const std::vector<std::string> &list) {
    if (list.size() > QIVEN_ARRAY_MAX) return false;
    if (!std::all_of(list.begin(), list.end(), [&](const auto &text) { return Fits(field, text); }))
        return false;
    memset(Slot(record, field), 0, size_t{QIVEN_ARRAY_MAX} * field.cbField);
    for (size_t i = 0; i < list.size(); ++i)
        WriteText(Slot(record, field) + i * field.cbField, field.cbField, list[i]);
    return true;
}

bool IsAnswer(const nasinfo &record) {
    return record.ulPktType == QIVEN_PKT_ANSWER || record.ulPktType == QIVEN_PKT_ANSWER_INST;
}

std::string MacText(const unsigned char (&rgMac)[6]) {
    return fmt::format("{:02x}", fmt::join(rgMac, ":"));
}

std::string Dotted(uint32_t ulAddress) {
    char szAddress[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &ulAddress, szAddress, sizeof szAddress);
    return szAddress;
}

std::optional<uint32_t> FromDotted(const std::string &address) {
    uint32_t ulAddress = 0;
    if (inet_pton(AF_INET, address.c_str(), &ulAddress) != 1) return std::nullopt;
    return ulAddress;
}

std::vector<uint64_t> ServicesSupported(const nasinfo &record) {
    return Services(record, QIVENNasinfoServSuppGet);
}

std::vector<uint64_t> ServicesRunning(const nasinfo &record) {
    return Services(record, QIVENNasinfoServRunGet);
}

}  // namespace qiven::fields
