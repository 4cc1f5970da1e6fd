#include "find/columns.h"

#include <fmt/format.h>

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "fields.h"
#include "utc_time.h"

namespace qiven::find {

namespace {

using output::Value;

std::vector<std::string> Dotted(const Host &host) {
    std::vector<std::string> addresses;
    for (const HeardAddress &address : host.addresses)
        addresses.push_back(fields::Dotted(address.ulIP));
    return addresses;
}

// Columns that are not fields of the record.
struct Derived {
    const char *szName;
    Value (*pfnValue)(const Host &host, const nasinfo &record);
};

constexpr Derived kDerived[] = {
    {"addresses", [](const Host &host, const nasinfo &) -> Value { return Dotted(host); }},
    {"macs", [](const Host &host, const nasinfo &) -> Value { return host.macs; }},
    {"services_supported",
     [](const Host &, const nasinfo &record) -> Value { return fields::ServicesSupported(record); }},
    {"services_running",
     [](const Host &, const nasinfo &record) -> Value { return fields::ServicesRunning(record); }},
    {"answers", [](const Host &host, const nasinfo &) -> Value { return host.ullAnswers; }},
    {"sealed", [](const Host &host, const nasinfo &) -> Value { return host.blSealed; }},
    // Without its keys the command does not search at all.
    {"query_key", [](const Host &, const nasinfo &) -> Value { return true; }},
    {"first_seen", [](const Host &host, const nasinfo &) -> Value { return UtcTime(host.firstSeen); }},
    {"last_seen", [](const Host &host, const nasinfo &) -> Value { return UtcTime(host.lastSeen); }},
};

// Members of every object, even if they are empty.
bool IsAlwaysPresent(std::string_view name) {
    constexpr std::array<std::string_view, 4> names = {"name", "ident", "model", "type"};
    return std::find(names.begin(), names.end(), name) != names.end();
}

Value FieldValue(const nasinfo &record, const fields::Field &field) {
    if (!fields::HasValue(record, field) && !IsAlwaysPresent(field.name)) return {};
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

// The bitmaps of the services are shown as lists of service numbers instead.
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

size_t UsualWidth(const std::string &name) {
    if (name == "name") return 20;
    if (name == "address") return 15;
    if (name == "model") return 6;
    if (name == "mac") return 17;
    return 14;
}

bool IsAddress(const std::string &column) {
    const fields::Field *pField = fields::ByName(column);
    return pField != nullptr && pField->kind == fields::Kind::kAddress;
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
        chosen = {"name", "address", "model", "mac", "ident"};
    if (chosen.empty()) chosen = Names();
    std::vector<output::Column> columns;
    std::transform(chosen.begin(), chosen.end(), std::back_inserter(columns), [](const std::string &name) {
        return output::Column{name, UsualWidth(name)};
    });
    return columns;
}

Value ValueOf(const Host &host, const nasinfo &record, const std::string &column) {
    for (const Derived &derived : kDerived)
        if (column == derived.szName) return derived.pfnValue(host, record);
    const fields::Field *pField = fields::ByName(column);
    return pField != nullptr ? FieldValue(record, *pField) : Value();
}

output::Row MakeRow(const Host &host, const std::vector<output::Column> &columns) {
    const nasinfo record = Unpack(host);
    output::Row row;
    for (const output::Column &column : columns)
        row.push_back(ValueOf(host, record, column.name));
    return row;
}

void Sort(std::vector<const Host *> &hosts, const std::string &column) {
    const bool blReverse = column[0] == '-';
    const std::string name = blReverse ? column.substr(1) : column;
    std::vector<std::pair<Value, const Host *>> keyed;
    for (const Host *pHost : hosts) {
        Value value = ValueOf(*pHost, Unpack(*pHost), name);
        const auto *pText = std::get_if<std::string>(&value);
        if (pText != nullptr && IsAddress(name))
            value = uint64_t{ntohl(fields::FromDotted(*pText).value_or(0))};
        keyed.emplace_back(std::move(value), pHost);
    }
    std::stable_sort(keyed.begin(), keyed.end(), [blReverse](const auto &a, const auto &b) {
        return blReverse ? b.first < a.first : a.first < b.first;
    });
    std::transform(keyed.begin(), keyed.end(), hosts.begin(), [](const auto &entry) { return entry.second; });
}

}  // namespace qiven::find
