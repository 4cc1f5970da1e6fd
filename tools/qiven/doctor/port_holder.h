// Finds the processes that hold a UDP port, in /proc.
#pragma once

#include <cstdint>
#include <string>

namespace qiven::doctor {

// "process 123 (program)", several of them joined by commas, or empty if none is found. Omits this process.
std::string PortHolders(uint16_t usPort);

}  // namespace qiven::doctor
