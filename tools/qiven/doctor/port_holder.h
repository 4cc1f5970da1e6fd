// Finds the processes that hold a UDP port, in /proc.
#pragma once

#include <cstdint>
#include <string>

namespace qiven::doctor {

// "process 123 (program)", several of them joined by commas, or that it is unknown. Omits this process.
std::string HolderOf(uint16_t usPort);

// Whether another socket holds the port without sharing it.
bool IsHeldAlone(uint16_t usPort);

}  // namespace qiven::doctor
