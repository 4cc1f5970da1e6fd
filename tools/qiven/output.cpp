#include "output.h"

#include <fmt/format.h>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>
#include <type_traits>

#include "text.h"

namespace qiven::output {

namespace {

using nlohmann::ordered_json;
using Numbers = std::vector<uint64_t>;
using Texts = std::vector<std::string>;

constexpr size_t kGap = 2;        // columns between two cells
constexpr size_t kNarrowest = 6;  // a text column is not made narrower than this before others are dropped

bool IsEmpty(const Value &value) {
    return std::holds_alternative<std::monostate>(value);
}

// One cell as escaped text on one line.
std::string CellText(const Value &value, bool blAscii) {
    return std::visit(
        [blAscii](const auto &v) -> std::string {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, bool>) return v ? "yes" : "no";
            if constexpr (std::is_same_v<T, uint64_t>) return fmt::format("{}", v);
            if constexpr (std::is_same_v<T, std::string>) return text::Escape(v, blAscii);
            if constexpr (std::is_same_v<T, Numbers>) return fmt::format("{}", fmt::join(v, ";"));
            if constexpr (std::is_same_v<T, Texts>) {
                Texts escaped;
                for (const std::string &element : v)
                    escaped.push_back(text::Escape(element, blAscii, ';'));
                return fmt::format("{}", fmt::join(escaped, ";"));
            }
            return {};
        },
        value);
}

std::string TerminalCell(const Value &value) {
    return CellText(value, !text::IsUtf8Locale());
}

// The exact bytes of a value that JSON cannot carry; null when it can.
ordered_json RawBytes(const Value &value) {
    if (const auto *pText = std::get_if<std::string>(&value)) {
        return text::IsUtf8(*pText) ? ordered_json() : ordered_json(text::Hex(*pText));
    }
    const auto *pTexts = std::get_if<Texts>(&value);
    if (pTexts == nullptr || std::all_of(pTexts->begin(), pTexts->end(), text::IsUtf8)) return {};
    ordered_json raw = ordered_json::array();
    for (const std::string &element : *pTexts)
        raw.push_back(text::Hex(element));
    return raw;
}

std::string Object(const Writer &writer, const Row &row) {
    ordered_json object = ordered_json::object();
    ordered_json raw = ordered_json::object();
    if (writer.schema) object["schema"] = *writer.schema;
    for (size_t i = 0; i < writer.columns.size(); ++i) {
        if (IsEmpty(row[i])) continue;
        const std::string &name = writer.columns[i].name;
        std::visit(
            [&](const auto &v) {
                if constexpr (!std::is_same_v<std::decay_t<decltype(v)>, std::monostate>) object[name] = v;
            },
            row[i]);
        ordered_json bytes = RawBytes(row[i]);
        if (!bytes.is_null()) raw[name] = std::move(bytes);
    }
    if (!raw.empty()) object["raw"] = std::move(raw);
    // ASCII only, so that JSON on a terminal is as safe as a table.
    return object.dump(-1, ' ', true, ordered_json::error_handler_t::replace);
}

std::string CsvCell(const std::string &cell) {
    if (cell.find_first_of(",\"") == std::string::npos) return cell;
    std::string quoted = "\"";
    for (const char c : cell)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string CsvLine(const std::vector<std::string> &cells) {
    std::vector<std::string> quoted;
    std::transform(cells.begin(), cells.end(), std::back_inserter(quoted), CsvCell);
    return fmt::format("{}\r\n", fmt::join(quoted, ","));
}

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    return text;
}

size_t TotalWidth(const std::vector<size_t> &widths) {
    size_t uTotal = widths.empty() ? 0 : kGap * (widths.size() - 1);
    for (const size_t uWidth : widths)
        uTotal += uWidth;
    return uTotal;
}

// Makes the widest columns narrower until the table fits, and drops the last ones when that is not enough.
void FitWidths(std::vector<size_t> &widths, size_t uTerminal) {
    if (uTerminal == 0) return;
    while (TotalWidth(widths) > uTerminal) {
        const auto widest = std::max_element(widths.begin(), widths.end());
        if (*widest > kNarrowest) {
            --*widest;
        } else if (widths.size() > 1) {
            widths.pop_back();
        } else {
            widths.front() = uTerminal;
        }
    }
}

std::string TableLine(const Writer &writer, const std::vector<std::string> &cells) {
    const bool blCut = TerminalWidth(STDOUT_FILENO) > 0;
    std::string line;
    for (size_t i = 0; i < writer.widths.size(); ++i) {
        const std::string cell = blCut ? text::Cut(cells[i], writer.widths[i]) : cells[i];
        line += cell;
        if (i + 1 == writer.widths.size()) break;
        const size_t uWidth = text::Width(cell);
        line.append((uWidth < writer.widths[i] ? writer.widths[i] - uWidth : 0) + kGap, ' ');
    }
    return line;
}

std::vector<std::string> Cells(const Row &row) {
    std::vector<std::string> cells;
    std::transform(row.begin(), row.end(), std::back_inserter(cells), TerminalCell);
    return cells;
}

// The header line, once the widths are known.
void BeginTable(Writer &writer) {
    writer.widths.clear();
    std::vector<std::string> titles;
    for (const Column &column : writer.columns) {
        titles.push_back(Upper(column.name));
        writer.widths.push_back(std::max(column.uWidth, titles.back().size()));
    }
    for (const Row &row : writer.held) {
        const std::vector<std::string> cells = Cells(row);
        for (size_t i = 0; i < cells.size(); ++i)
            writer.widths[i] = std::max(writer.widths[i], text::Width(cells[i]));
    }
    FitWidths(writer.widths, TerminalWidth(STDOUT_FILENO));
    const std::string line = TableLine(writer, titles);
    Write(UseColour(writer.colour, STDOUT_FILENO) ? "\033[1m" + line + "\033[0m\n" : line + "\n");
}

void WriteTableRow(Writer &writer, const Row &row) {
    if (writer.nRows == 0) BeginTable(writer);
    Write(TableLine(writer, Cells(row)) + "\n");
}

void WritePlain(const Writer &writer, const Row &row) {
    std::string text = writer.nRows == 0 ? "" : "\n";
    for (size_t i = 0; i < writer.columns.size(); ++i) {
        if (!IsEmpty(row[i])) text += writer.columns[i].name + ": " + TerminalCell(row[i]) + "\n";
    }
    Write(text);
}

}  // namespace

void AddOptions(CLI::App &app, Format &format, Colour &colour) {
    static const std::vector<std::pair<std::string, Format>> formats = {{"table", Format::kTable},
                                                                        {"plain", Format::kPlain},
                                                                        {"json", Format::kJson},
                                                                        {"ndjson", Format::kNdjson},
                                                                        {"csv", Format::kCsv}};
    static const std::vector<std::pair<std::string, Colour>> colours = {
        {"auto", Colour::kAuto}, {"always", Colour::kAlways}, {"never", Colour::kNever}};
    app.add_option_function<std::string>(
           "--format",
           [&format](const std::string &name) {
               for (const auto &[known, value] : formats)
                   if (name == known) format = value;
           },
           "How to write the results")
        ->check(CLI::IsMember({"table", "plain", "json", "ndjson", "csv"}))
        ->type_name("FORMAT");
    app.add_option_function<std::string>(
           "--color",
           [&colour](const std::string &name) {
               for (const auto &[known, value] : colours)
                   if (name == known) colour = value;
           },
           "Colour: auto (on a terminal without NO_COLOR), always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("WHEN");
}

void Begin(Writer &writer) {
    if (writer.format == Format::kCsv) {
        std::vector<std::string> names;
        for (const Column &column : writer.columns)
            names.push_back(column.name);
        Write(CsvLine(names));
    } else if (writer.format == Format::kJson) {
        Write("[");
    }
}

void WriteRow(Writer &writer, const Row &row) {
    switch (writer.format) {
        case Format::kTable:
            if (!writer.blStream) {
                writer.held.push_back(row);
                return;
            }
            WriteTableRow(writer, row);
            break;
        case Format::kPlain:
            WritePlain(writer, row);
            break;
        case Format::kJson:
            Write((writer.nRows == 0 ? "\n" : ",\n") + Object(writer, row));
            break;
        case Format::kNdjson:
            Write(Object(writer, row) + "\n");
            break;
        case Format::kCsv: {
            std::vector<std::string> cells;
            for (const Value &value : row)
                cells.push_back(CellText(value, false));
            Write(CsvLine(cells));
            break;
        }
    }
    ++writer.nRows;
}

void End(Writer &writer) {
    if (writer.format == Format::kJson) Write(writer.nRows == 0 ? "]\n" : "\n]\n");
    if (writer.format == Format::kTable && !writer.blStream) {
        for (const Row &row : writer.held) {
            WriteTableRow(writer, row);
            ++writer.nRows;
        }
        writer.held.clear();
    }
}

// Not through stdio: a signal in a slow write would cost it data.
void Write(const std::string &text) {
    std::string_view left = text;
    while (!left.empty()) {
        const ssize_t cbWritten = write(STDOUT_FILENO, left.data(), left.size());
        if (cbWritten >= 0) {
            left.remove_prefix(static_cast<size_t>(cbWritten));
        } else if (errno == EAGAIN) {
            pollfd writable{STDOUT_FILENO, POLLOUT, 0};
            poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "cannot write to standard output");
        }
    }
}

void EndWithoutReader() {
    pollfd state{STDOUT_FILENO, 0, 0};
    if (poll(&state, 1, 0) != 1 || (state.revents & POLLERR) == 0) return;
    raise(SIGPIPE);
    throw std::system_error(EPIPE, std::generic_category(), "cannot write to standard output");
}

size_t TerminalWidth(int fd) {
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
    const char *szTerm = getenv("TERM");
    const bool blUnwanted = szNoColor != nullptr && *szNoColor != '\0';
    return !blUnwanted && isatty(fd) == 1 && szTerm != nullptr && strcmp(szTerm, "dumb") != 0;
}

}  // namespace qiven::output
