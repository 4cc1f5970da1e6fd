// Redirects a fixed path to the input, for targets that open it: open() is wrapped at link time.
#pragma once

#include <fcntl.h>

#include <cstdarg>
#include <string>

namespace fuzz {

inline std::string g_from;  // the fixed path
inline std::string g_to;    // the path that is opened instead

}  // namespace fuzz

extern "C" int __real_open(const char *szPath, int iFlags, ...);
extern "C" int __wrap_open(const char *szPath, int iFlags, ...);
extern "C" int __wrap_open(const char *szPath, int iFlags, ...) {
    if (fuzz::g_from == szPath) return __real_open(fuzz::g_to.c_str(), iFlags);
    va_list args;
    va_start(args, iFlags);
    const mode_t mode = (iFlags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;  // the engine's own files
    va_end(args);
    return __real_open(szPath, iFlags, mode);
}
