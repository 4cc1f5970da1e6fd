// The text of a configuration file, bounded before anything parses it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qiven::answer {

struct FileFault {
    uint32_t ulLine = 0;  // 0 if the whole file is at fault
    std::string what;
};

// Reads a regular file of a bounded size; nothing else is waited for. Refuses a text that a recursive parser
// has no stack for.
std::optional<std::string> ReadText(const std::string &path, FileFault &fault);

}  // namespace qiven::answer
