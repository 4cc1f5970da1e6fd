#include "doctor/nft_match.h"

#include <qiven/udp.h>

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <optional>

namespace qiven::doctor::nft {

namespace {

// What an expression says of the datagram: a number, a name, or both.
struct Property {
    enum { kKnown, kUnknown, kAbsent } state = kKnown;
    std::optional<uint64_t> number{};
    std::string name{};
};

const Property kUnknown{Property::kUnknown}, kAbsent{Property::kAbsent};
constexpr unsigned kUdp = 17;

std::optional<uint64_t> NumberOf(const json &value) {
    if (value.is_number_unsigned()) return value.get<uint64_t>();
    in_addr address;
    if (inet_pton(AF_INET, TextOf(value).c_str(), &address) == 1) return ntohl(address.s_addr);
    return std::nullopt;
}

Property PayloadOf(const Scope &scope, const json &payload) {
    static constexpr std::array kOthers = {"ip6",  "tcp",  "icmp", "icmpv6", "igmp", "sctp",
                                           "dccp", "comp", "ah",   "esp",    "arp",  "udplite"};
    const std::string protocol = TextOf(Member(payload, "protocol"));
    const std::string field = TextOf(Member(payload, "field"));
    if (std::find(kOthers.begin(), kOthers.end(), protocol) != kOthers.end()) return kAbsent;
    if ((protocol == "udp" || protocol == "th") && field == "dport") return {.number = QIVEN_PORT};
    if (protocol != "ip") return kUnknown;
    if (field == "saddr") return {.number = scope.datagram.ulSource};
    if (field == "daddr") return {.number = INADDR_BROADCAST};
    return field == "protocol" ? Property{.number = kUdp, .name = "udp"} : kUnknown;
}

Property MetaOf(const Scope &scope, const std::string &key) {
    const bool blIn = scope.datagram.direction == Direction::kIn;
    if (key == "iif" || key == "iifname") return blIn ? Property{.name = scope.datagram.interface} : kAbsent;
    if (key == "oif" || key == "oifname") return blIn ? kAbsent : Property{.name = scope.datagram.interface};
    if (key == "l4proto") return {.number = kUdp, .name = "udp"};
    if (key == "nfproto") return {.name = "ipv4"};
    if (key == "protocol") return {.name = "ip"};
    return key == "pkttype" && blIn ? Property{.name = "broadcast"} : kUnknown;
}

Property PropertyOf(const Scope &scope, const json &expression) {
    if (expression.contains("payload")) return PayloadOf(scope, expression["payload"]);
    if (expression.contains("meta")) return MetaOf(scope, TextOf(Member(expression["meta"], "key")));
    // Nobody has answered a broadcast, so it is new every time.
    if (TextOf(Member(Member(expression, "ct"), "key")) == "state") return {.name = "new"};
    const json &fib = Member(expression, "fib");
    if (TextOf(Member(fib, "result")) != "type") return kUnknown;
    const json &flags = Member(fib, "flags");
    const json &flag = flags.is_array() && flags.size() == 1 ? flags[0] : flags;
    if (TextOf(flag) == "daddr") return {.name = "broadcast"};
    return TextOf(flag) == "saddr" ? Property{.name = "local"} : kUnknown;
}

Match Known(bool blYes) {
    return blYes ? Match::kYes : Match::kNo;
}

Match IsName(const Property &property, const std::string &text) {
    if (property.name.empty()) return Match::kMaybe;
    if (!text.empty() && text.back() == '*')
        return Known(property.name.starts_with(text.substr(0, text.size() - 1)));
    return Known(property.name == text);
}

Match IsBetween(const Property &property, std::optional<uint64_t> first, std::optional<uint64_t> last) {
    if (!property.number || !first || !last) return Match::kMaybe;
    return Known(*first <= *property.number && *property.number <= *last);
}

Match IsInPrefix(const Property &property, const json &prefix) {
    const auto address = NumberOf(Member(prefix, "addr"));
    const auto length = NumberOf(Member(prefix, "len"));
    constexpr uint64_t kBits = 32;
    if (!address || !length || *length > kBits) return Match::kMaybe;
    const uint64_t ullHosts = (uint64_t{1} << (kBits - *length)) - 1;
    return IsBetween(property, *address & ~ullHosts, *address | ullHosts);
}

Match Is(const Scope &scope, const Property &property, const json &value);

Match IsAny(const Scope &scope, const Property &property, const json &values) {  // NOLINT(misc-no-recursion)
    Match best = Match::kNo;
    for (const json &value : values) {
        best = std::max(best, Is(scope, property, value));
        if (best == Match::kYes) break;
    }
    return best;
}

// As deep as the text is nested, which the reader limits.
Match Is(const Scope &scope, const Property &property, const json &value) {  // NOLINT(misc-no-recursion)
    if (value.is_array()) return IsAny(scope, property, value);
    if (value.is_string()) {
        const std::string text = TextOf(value);
        if (text.starts_with('@')) {
            // The elements of a set refer to no other set.
            static const Sets none;
            const json &elements = ElementsOf(scope, text);
            const Scope inner{scope.datagram, none, scope.family, scope.table};
            return elements.is_array() ? IsAny(inner, property, elements) : Match::kMaybe;
        }
        const auto number = NumberOf(value);
        return number ? IsBetween(property, number, number) : IsName(property, text);
    }
    if (value.is_number()) return IsBetween(property, NumberOf(value), NumberOf(value));
    if (value.contains("set")) return Is(scope, property, value["set"]);
    if (value.contains("elem")) return Is(scope, property, Member(value["elem"], "val"));
    if (value.contains("prefix")) return IsInPrefix(property, value["prefix"]);
    const json &range = Member(value, "range");
    if (range.is_array() && range.size() == 2)
        return IsBetween(property, NumberOf(range[0]), NumberOf(range[1]));
    return Match::kMaybe;
}

}  // namespace

const json &Member(const json &value, const char *szName) {
    static const json none;
    if (!value.is_object()) return none;
    const auto at = value.find(szName);
    return at == value.end() ? none : *at;
}

std::string TextOf(const json &value) {
    const auto *pText = value.get_ptr<const json::string_t *>();
    return pText == nullptr ? std::string() : *pText;
}

const json &ElementsOf(const Scope &scope, const std::string &reference) {
    static const json none;
    if (!reference.starts_with('@')) return none;
    const auto at = scope.sets.find({scope.family, scope.table, reference.substr(1)});
    return at == scope.sets.end() ? none : *at->second;
}

Match HasValue(const Scope &scope, const json &expression, const json &values) {
    const Property property = PropertyOf(scope, expression);
    if (property.state == Property::kAbsent) return Match::kNo;
    return property.state == Property::kUnknown ? Match::kMaybe : Is(scope, property, values);
}

Match Meets(const Scope &scope, const json &condition) {
    const std::string op = TextOf(Member(condition, "op"));
    const json &left = Member(condition, "left");
    // What a datagram does not have meets no condition, whatever the operator.
    if (PropertyOf(scope, left).state == Property::kAbsent) return Match::kNo;
    const Match match = HasValue(scope, left, Member(condition, "right"));
    if (op == "==" || op == "in") return match;
    if (op != "!=" || match == Match::kMaybe) return Match::kMaybe;
    return match == Match::kYes ? Match::kNo : Match::kYes;
}

bool IsPort(const json &expression) {
    return TextOf(Member(Member(expression, "payload"), "field")) == "dport";
}

}  // namespace qiven::doctor::nft
