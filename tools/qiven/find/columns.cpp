#include "find/columns.h"

#include <fmt/format.h>

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <string_view>
#include <type_traits>
#include <utility>

#include "fields.h"
#include "find/host.h"
#include "output/utc_time.h"

namespace qiven::find {

namespace {

using output::Value;

using Host = QIVEN_WATCH_HOST;
using HeardAddress = QIVEN_WATCH_ADDRESS;

// What each address of the searched interfaces has, once each and in the order of appearance; nothing for an
// address that has none.
template <typename Part>
std::vector<std::string> EachOf(const Host &host, Part part) {
    std::vector<std::string> parts;
    for (uint32_t i = 0; i < host.nAddresses; ++i) {
        if ((host.rgAddress[i].ulFlags & QIVEN_ADDRESS_UNUSED) != 0) continue;
        std::string text = part(host.rgAddress[i]);
        if (!text.empty() && std::find(parts.begin(), parts.end(), text) == parts.end())
            parts.push_back(std::move(text));
    }
    return parts;
}

// Of the first address, which is there in every host that is shown.
template <typename Part>
Value FirstOf(const Host &host, Part part) {
    const HeardAddress *pAddress = FirstAddress(host);
    std::string text = pAddress != nullptr ? part(*pAddress) : std::string();
    return text.empty() ? Value() : Value(std::move(text));
}

std::string ClaimedOf(const HeardAddress &address) {
    return address.ulIP == 0 ? std::string() : fields::Dotted(address.ulIP);
}
std::string SourceOf(const HeardAddress &address) {
    return fields::Dotted(address.ulSource);
}
std::string InterfaceOf(const HeardAddress &address) {
    return address.szIfName;
}
std::string MacOf(const HeardAddress &address) {
    return {address.szMacAddr, strnlen(address.szMacAddr, sizeof address.szMacAddr)};
}

bool IsSealed(const Host &host) {
    return std::any_of(host.rgAddress, host.rgAddress + host.nAddresses, [](const HeardAddress &address) {
        return (address.ulFlags & QIVEN_ADDRESS_SEALED) != 0;
    });
}

// Columns that are not simply a field of the record.
struct Derived {
    const char *szName;
    Value (*pfnValue)(const Host &host);
    bool blGrows = false;  // with each answer, so that it is known at the end of the search only
};

constexpr Derived kDerived[] = {
    {"address", [](const Host &host) { return FirstOf(host, ClaimedOf); }},
    {"addresses", [](const Host &host) -> Value { return EachOf(host, ClaimedOf); }, true},
    {"source", [](const Host &host) { return FirstOf(host, SourceOf); }},
    {"interface", [](const Host &host) { return FirstOf(host, InterfaceOf); }},
    {"interfaces", [](const Host &host) -> Value { return EachOf(host, InterfaceOf); }, true},
    {"mac", [](const Host &host) { return FirstOf(host, MacOf); }},
    {"macs", [](const Host &host) -> Value { return EachOf(host, MacOf); }, true},
    {"conflict", [](const Host &host) -> Value { return host.ulConflict != 0; }, true},
    {"services_supported",
     [](const Host &host) -> Value { return fields::ServicesSupported(*host.pnasInfo); }},
    {"services_running", [](const Host &host) -> Value { return fields::ServicesRunning(*host.pnasInfo); }},
    {"answers", [](const Host &host) -> Value { return host.ullAnswers; }, true},
    {"sealed", [](const Host &host) -> Value { return IsSealed(host); }},
    // Without its keys the command does not ask at all.
    {"query_key", [](const Host &) -> Value { return true; }},
    {"first_seen", [](const Host &host) -> Value { return UtcTime(host.llFirstUnixUs); }},
    {"last_seen", [](const Host &host) -> Value { return UtcTime(host.llLastUnixUs); }, true},
};

const Derived *FindDerived(const std::string &name) {
    const auto *p = std::find_if(std::begin(kDerived), std::end(kDerived),
                                 [&name](const Derived &derived) { return name == derived.szName; });
    return p == std::end(kDerived) ? nullptr : p;
}

// Members that every object has, so that their readers need not ask.
bool IsAlwaysThere(std::string_view name) {
    constexpr std::array<std::string_view, 4> names = {"name", "ident", "model", "type"};
    return std::find(names.begin(), names.end(), name) != names.end();
}

Value FieldValue(const nasinfo &record, const fields::Field &field) {
    if (!fields::HasValue(record, field) && !IsAlwaysThere(field.name)) return {};
    switch (field.kind) {
        case fields::Kind::kText:
            return fields::Text(record, field);
        case fields::Kind::kAddress:
            return fields::Address(record, field);
        case fields::Kind::kList:
            return fields::List(record, field);
        case fields::Kind::kNumber:
            break;
    }
    return fields::Number(record, field);
}

// The words of the service flags are shown as lists of service numbers.
bool IsShown(const fields::Field &field) {
    return field.cbField != sizeof(uint64_t) || field.kind != fields::Kind::kNumber;
}

std::vector<std::string> Names() {
    std::vector<std::string> names = {"name", "address", "model", "type", "mac", "ident"};
    const auto add = [&names](const std::string &name) {
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    };
    for (const Derived &derived : kDerived)
        add(derived.szName);
    for (const fields::Field &field : fields::All())
        if (IsShown(field)) add(field.name);
    return names;
}

// What an answer says differently to each query and on each interface is no change of its host.
bool DescribesHost(const std::string &name) {
    if (name.starts_with("services_")) return true;
    const fields::Field *pField = fields::ByName(name);
    constexpr std::array<std::string_view, 4> kDiffer = {"mac", "public_key", "process_id",
                                                         "peer_process_id"};
    return pField != nullptr && pField->kind != fields::Kind::kAddress &&
           std::find(kDiffer.begin(), kDiffer.end(), name) == kDiffer.end();
}

std::string TextOf(const Value &value) {
    return std::visit(
        [](const auto &v) -> std::string {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::string>) return v;
            if constexpr (std::is_same_v<T, uint64_t>) return fmt::format("{}", v);
            if constexpr (std::is_same_v<T, std::vector<uint64_t>> ||
                          std::is_same_v<T, std::vector<std::string>>)
                return fmt::format("{}", fmt::join(v, ";"));
            return {};
        },
        value);
}

size_t UsualWidth(const std::string &name) {
    if (name == "name") return 20;
    if (name == "address") return 15;
    if (name == "model") return 6;
    if (name == "mac") return 17;
    return 14;
}

bool IsAddress(const std::string &column) {
    const fields::Field *pField = fields::ByName(column);
    return column == "source" || (pField != nullptr && pField->kind == fields::Kind::kAddress);
}

}  // namespace

bool IsColumn(const std::string &name) {
    const std::vector<std::string> names = Names();
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::string AllColumns() {
    return fmt::format("{}", fmt::join(Names(), ", "));
}

std::vector<output::Column> ChooseColumns(const std::vector<std::string> &names, output::Format format) {
    std::vector<std::string> chosen = names;
    if (chosen.empty() && format == output::Format::kTable)
        chosen = {"name", "address", "model", "mac", "ident", "interface"};
    if (chosen.empty()) chosen = Names();
    std::vector<output::Column> columns;
    std::transform(chosen.begin(), chosen.end(), std::back_inserter(columns), [](const std::string &name) {
        return output::Column{name, UsualWidth(name)};
    });
    return columns;
}

bool AreFinal(const std::vector<output::Column> &columns) {
    return std::none_of(columns.begin(), columns.end(), [](const output::Column &column) {
        const Derived *pDerived = FindDerived(column.name);
        return pDerived != nullptr && pDerived->blGrows;
    });
}

Value ValueOf(const QIVEN_WATCH_HOST &host, const std::string &column) {
    if (const Derived *pDerived = FindDerived(column); pDerived != nullptr) return pDerived->pfnValue(host);
    const fields::Field *pField = fields::ByName(column);
    return pField != nullptr ? FieldValue(*host.pnasInfo, *pField) : Value();
}

void AddCells(output::Row &row, const QIVEN_WATCH_HOST &host, const std::vector<output::Column> &columns) {
    for (size_t i = row.size(); i < columns.size(); ++i)
        row.push_back(ValueOf(host, columns[i].name));
}

Value SortKey(const QIVEN_WATCH_HOST &host, const std::string &column) {
    Value value = ValueOf(host, column);
    const auto *pText = std::get_if<std::string>(&value);
    if (pText != nullptr && IsAddress(column)) return uint64_t{ntohl(fields::FromDotted(*pText).value_or(0))};
    return value;
}

std::vector<output::Change> Changes(const QIVEN_WATCH_EVENT &event) {
    std::vector<output::Change> changes;
    const QIVEN_WATCH_HOST &host = *event.pHost;
    if ((event.ulChanged & QIVEN_CHANGED_ADDRESS) != 0)
        changes.push_back({"addresses", {}, TextOf(EachOf(host, ClaimedOf))});
    if (event.pnasInfoWas == nullptr) return changes;
    QIVEN_WATCH_HOST before = host;
    before.pnasInfo = event.pnasInfoWas;
    for (const std::string &name : Names()) {
        if (!DescribesHost(name)) continue;
        std::string was = TextOf(ValueOf(before, name));
        std::string now = TextOf(ValueOf(host, name));
        if (was != now) changes.push_back({name, std::move(was), std::move(now)});
    }
    return changes;
}

}  // namespace qiven::find
