#include "output/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <system_error>

namespace qiven::terminal {

bool IsCapable(int fd) {
    const char *szTerm = getenv("TERM");
    return isatty(fd) == 1 && szTerm != nullptr && strcmp(szTerm, "dumb") != 0;
}

size_t Width(int fd) {
    const char *szColumns = getenv("COLUMNS");
    if (szColumns != nullptr) {
        size_t uColumns = 0;
        const char *szEnd = szColumns + strlen(szColumns);
        const auto [pStop, error] = std::from_chars(szColumns, szEnd, uColumns);
        if (error == std::errc() && pStop == szEnd && uColumns > 0) return uColumns;
    }
    winsize size{};
    return isatty(fd) == 1 && ioctl(fd, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

bool UseColour(Colour colour, int fd) {
    if (colour != Colour::kAuto) return colour == Colour::kAlways;
    const char *szNoColor = getenv("NO_COLOR");
    const bool blUnwanted = szNoColor != nullptr && *szNoColor != '\0';
    return !blUnwanted && IsCapable(fd);
}

}  // namespace qiven::terminal
