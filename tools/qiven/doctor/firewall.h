// What the packet filter does with datagrams of the discovery port, as far as its rules can be read.
#pragma once

#include <optional>
#include <string>

namespace qiven::doctor {

enum class Direction { kIn, kOut };

// The rule (or policy) that most likely drops or refuses datagrams of the port in this direction, in words;
// none when there is no such rule or none can be read.
std::optional<std::string> FindDrop(Direction direction);

}  // namespace qiven::doctor
