// Lets a target that opens a fixed path find the input there: open() is wrapped when the target is linked.
#pragma once

#include <fcntl.h>

#include <string>

namespace fuzz {

inline std::string g_from;  // the path that is opened by name
inline std::string g_to;    // what is opened instead

}  // namespace fuzz

extern "C" int __real_open(const char *szPath, int iFlags, ...);
extern "C" int __wrap_open(const char *szPath, int iFlags, ...);
extern "C" int __wrap_open(const char *szPath, int iFlags, ...) {
    return __real_open(fuzz::g_from == szPath ? fuzz::g_to.c_str() : szPath, iFlags);
}
