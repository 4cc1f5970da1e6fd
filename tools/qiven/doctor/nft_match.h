// Whether a datagram meets the conditions of rules of nftables. Includes the JSON library's headers, which
// take seconds to compile.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <tuple>

#include "doctor/firewall.h"

namespace qiven::doctor::nft {

using nlohmann::json;

enum class Match { kNo, kMaybe, kYes };

// Elements of named sets and maps, by family, table and name.
using Key = std::tuple<std::string, std::string, std::string>;
using Sets = std::map<Key, const json *>;

// A member, or null if there is none.
const json &Member(const json &value, const char *szName);
std::string TextOf(const json &value);

struct Scope {
    const Datagram &datagram;
    const Sets &sets;
    std::string family, table;
};

// Elements of the set or map of the table that "@NAME" refers to, or null.
const json &ElementsOf(const Scope &scope, const std::string &reference);

// Whether the expression has one of the values for the datagram.
Match HasValue(const Scope &scope, const json &expression, const json &values);
// A whole condition: its operator, too.
Match Meets(const Scope &scope, const json &condition);
// Whether the expression is the port that the datagram goes to.
bool IsPort(const json &expression);

}  // namespace qiven::doctor::nft
