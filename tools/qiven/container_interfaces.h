// The interfaces of containers and virtual machines. No host is behind them, so `qiven find` and
// `qiven doctor` leave them out unless asked.
#pragma once

#include <array>
#include <string>

namespace qiven {

inline constexpr std::array kContainerInterfaces = {"docker*", "veth*", "br-*", "virbr*"};

bool IsContainerInterface(const std::string &name);

}  // namespace qiven
