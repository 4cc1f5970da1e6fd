// Reads hexadecimal digits and raw files.
#include "decode/input.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace qiven::decode {

namespace {

int HexDigit(char ch) {
    if (ch >= '0' && ch <= '9') return ch - '0';
    if (ch >= 'a' && ch <= 'f') return ch - 'a' + 10;
    if (ch >= 'A' && ch <= 'F') return ch - 'A' + 10;
    return -1;
}

bool IsBlank(char ch) {
    return ch == ' ' || ch == '\t' || ch == '\r';
}

std::string_view Trim(std::string_view line) {
    while (!line.empty() && IsBlank(line.front()))
        line.remove_prefix(1);
    while (!line.empty() && IsBlank(line.back()))
        line.remove_suffix(1);
    return line;
}

bool HasPrefix0x(std::string_view s) {
    return s.size() >= 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
}

// Removes the offset column ("00000010: ", "0x0010:  ") from a line, and the text column, which is separated
// by two blanks. A colon between bytes does not end an offset, because no blank follows it.
bool TakeOffset(std::string_view &line, bool &blZero) {
    const size_t iColon = line.find(':');
    if (iColon == std::string_view::npos || iColon + 1 >= line.size() || !IsBlank(line[iColon + 1]))
        return false;
    std::string_view offset = line.substr(0, iColon);
    if (HasPrefix0x(offset)) offset.remove_prefix(2);
    if (offset.size() < 4 || offset.size() > 8) return false;
    for (const char ch : offset)
        if (HexDigit(ch) < 0) return false;
    blZero = offset.find_first_not_of('0') == std::string_view::npos;
    line = Trim(line.substr(iColon + 1));
    line = line.substr(0, line.find("  "));
    return true;
}

bool AppendHex(std::string_view line, std::vector<unsigned char> &rgb, std::string &error) {
    while (!line.empty()) {
        if (IsBlank(line[0]) || line[0] == ':' || HasPrefix0x(line)) {
            line.remove_prefix(HasPrefix0x(line) ? 2 : 1);
            continue;
        }
        const int iHigh = HexDigit(line[0]);
        const int iLow = line.size() > 1 ? HexDigit(line[1]) : -1;
        if (iHigh < 0) {
            const auto bBad = static_cast<unsigned char>(line[0]);
            error = bBad > ' ' && bBad < 0x7F ? fmt::format("'{}' is not a hexadecimal digit", line[0])
                                              : fmt::format("byte 0x{:02x} is not a hexadecimal digit", bBad);
            return false;
        }
        if (iLow < 0) {
            error = "a byte needs two hexadecimal digits";
            return false;
        }
        rgb.push_back(static_cast<unsigned char>(iHigh * 16 + iLow));
        line.remove_prefix(2);
    }
    return true;
}

}  // namespace

bool ParseHex(std::string_view text, std::vector<std::vector<unsigned char>> &packets, std::string &error) {
    bool blNew = true;
    for (int iLine = 1; !text.empty(); ++iLine) {
        const size_t iEnd = text.find('\n');
        std::string_view line = Trim(text.substr(0, iEnd));
        text = iEnd == std::string_view::npos ? std::string_view{} : text.substr(iEnd + 1);
        bool blZero = false;
        if (TakeOffset(line, blZero) && blZero) blNew = true;
        if (line.empty()) {
            blNew = true;
            continue;
        }
        if (blNew) packets.emplace_back();
        blNew = false;
        if (!AppendHex(line, packets.back(), error)) {
            error = fmt::format("line {}: {}", iLine, error);
            return false;
        }
    }
    return true;
}

bool ReadWhole(const std::string &path, size_t cbMax, std::string &content, std::string &error) {
    struct FileCloser {
        void operator()(FILE *pf) const {
            if (pf != stdin) fclose(pf);
        }
    };
    const std::unique_ptr<FILE, FileCloser> file(path == "-" ? stdin : fopen(path.c_str(), "rbe"));
    if (file == nullptr) {
        error = strerror(errno);
        return false;
    }
    char rgch[4096];
    size_t cb = 0;
    while ((cb = fread(rgch, 1, sizeof rgch, file.get())) > 0) {
        content.append(rgch, cb);
        if (content.size() > cbMax) {
            error = fmt::format("larger than {} bytes", cbMax);
            return false;
        }
    }
    if (ferror(file.get()) == 0) return true;
    error = strerror(errno);
    return false;
}

}  // namespace qiven::decode
