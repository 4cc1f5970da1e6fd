// Reads the text of a configuration file, and bounds it before it is parsed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qiven::answer {

struct FileFault {
    uint32_t ulLine = 0;  // 0 if the fault has no line
    std::string what;
};

// Reads a regular file of limited size; never waits, for example for a pipe. Refuses a text that would
// exhaust the stack of a recursive parser.
std::optional<std::string> ReadText(const std::string &path, FileFault &fault);

}  // namespace qiven::answer
