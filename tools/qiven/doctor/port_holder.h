// Which process has a UDP port open, as far as /proc tells.
#pragma once

#include <cstdint>
#include <string>

namespace qiven::doctor {

// "process 123 (program)", several of them joined, or empty when none can be named. Leaves this process out.
std::string PortHolders(uint16_t usPort);

}  // namespace qiven::doctor
