#include "answer/config_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "output/format.h"

namespace qiven::answer {

namespace {

// Many times the size of a packet. Parsing takes about fifty times the size of the text, and a program that
// reloads its configuration must not grow by much.
constexpr size_t kTextMax = 65536;
// Each dot between keys is a nested table, and the recursion of the parser has no limit. The keys of this
// file have no dots.
constexpr size_t kDotsMax = 100;

struct Descriptor {
    int fd;

    explicit Descriptor(int fdOpen) : fd(fdOpen) {}
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
};

// Why the file cannot be read; empty if it can.
std::string Refusal(int fd) {
    struct stat file {};
    if (fd < 0 || fstat(fd, &file) != 0) return fmt::format("cannot be opened: {}", strerror(errno));
    if (S_ISDIR(file.st_mode)) return "is a directory";
    if (!S_ISREG(file.st_mode)) return "is not a regular file";
    return {};
}

std::string ReadAll(int fd, std::string &text) {
    std::array<char, 4096> rgcPart;
    for (;;) {
        const ssize_t cbRead = read(fd, rgcPart.data(), rgcPart.size());
        if (cbRead == 0) return {};
        if (cbRead < 0 && errno == EINTR) continue;
        if (cbRead < 0) return fmt::format("cannot be read: {}", strerror(errno));
        text.append(rgcPart.data(), static_cast<size_t>(cbRead));
        if (text.size() > kTextMax) return fmt::format("is larger than {} bytes", kTextMax);
    }
}

// The position after the string that begins at uBegin, or the end of the line if the string is not closed.
size_t EndOfString(std::string_view text, size_t uBegin) {
    const char cQuote = text[uBegin];
    const std::string three(3, cQuote);
    const bool blLines = text.substr(uBegin).starts_with(three);
    size_t i = uBegin + (blLines ? 3 : 1);
    for (; i < text.size(); ++i) {
        if (text[i] == '\\' && cQuote == '"') {
            ++i;
        } else if (text[i] == '\n' && !blLines) {
            return i;
        } else if (text[i] == cQuote && !blLines) {
            return i + 1;
        } else if (text.substr(i).starts_with(three)) {
            // The string itself may end with two quotes.
            const size_t uEnd = text.find_first_not_of(cQuote, i);
            return std::min({uEnd, i + 5, text.size()});
        }
    }
    return text.size();
}

// The line of the dot that exceeds the limit; 0 if there is none. Up to the first fault in the text, strings
// and comments end here as they do in the parser.
uint32_t LineTooDeep(std::string_view text) {
    size_t nDots = 0;
    for (size_t i = 0; i < text.size();) {
        if (text[i] == '#') {
            i = std::min(text.find('\n', i), text.size());
        } else if (text[i] == '"' || text[i] == '\'') {
            i = EndOfString(text, i);
        } else {
            if (text[i] == '.' && ++nDots > kDotsMax)
                return 1 + static_cast<uint32_t>(
                               std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(i), '\n'));
            ++i;
        }
    }
    return 0;
}

}  // namespace

std::optional<std::string> ReadText(const std::string &path, FileFault &fault) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    std::string text;
    fault.what = Refusal(file.fd);
    if (fault.what.empty()) fault.what = ReadAll(file.fd, text);
    if (!fault.what.empty()) return std::nullopt;
    fault.ulLine = LineTooDeep(text);
    if (fault.ulLine == 0) return text;
    fault.what = "tables are nested too deeply";
    return std::nullopt;
}

}  // namespace qiven::answer
