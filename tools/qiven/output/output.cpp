#include "output/output.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <map>
#include <string_view>
#include <type_traits>

#include "output/json.h"
#include "output/text.h"

namespace qiven::output {

namespace {

using Numbers = std::vector<uint64_t>;
using Texts = std::vector<std::string>;

constexpr size_t kGap = 2;        // columns between two cells
constexpr size_t kNarrowest = 6;  // a column is not made narrower than this; columns are dropped instead

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
            if constexpr (std::is_same_v<T, std::vector<Change>>) {
                Texts escaped;
                for (const Change &change : v)
                    escaped.push_back(fmt::format("{}: {} -> {}", change.field,
                                                  text::Escape(change.was, blAscii, ';'),
                                                  text::Escape(change.now, blAscii, ';')));
                return fmt::format("{}", fmt::join(escaped, "; "));
            }
            return {};
        },
        value);
}

std::string TerminalCell(const Value &value) {
    return CellText(value, !text::IsUtf8Locale());
}

// The exact bytes of a value that JSON cannot represent; empty if it can.
Value RawBytes(const Value &value) {
    if (const auto *pText = std::get_if<std::string>(&value)) {
        if (text::IsUtf8(*pText)) return {};
        return text::Hex(*pText);
    }
    const auto *pTexts = std::get_if<Texts>(&value);
    if (pTexts == nullptr || std::all_of(pTexts->begin(), pTexts->end(), text::IsUtf8)) return {};
    Texts raw;
    std::transform(pTexts->begin(), pTexts->end(), std::back_inserter(raw), text::Hex);
    return raw;
}

std::string Object(const Writer &writer, const Row &row) {
    const json::Node object = json::Document();
    json::Node raw = json::Object();
    for (size_t i = 0; i < writer.columns.size(); ++i) {
        if (IsEmpty(row[i])) continue;
        const std::string &name = writer.columns[i].name;
        json::Set(object, name, row[i]);
        const Value bytes = RawBytes(row[i]);
        if (!IsEmpty(bytes)) json::Set(raw, name, bytes);
    }
    if (!json::IsEmpty(raw)) json::Set(object, "raw", std::move(raw));
    return json::Text(object);
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

// Makes the widest columns narrower until the table fits, and drops the last ones if that is not enough.
// Spare width goes to the last column.
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
    if (!widths.empty()) widths.back() += uTerminal - TotalWidth(widths);
}

std::string TableLine(const Writer &writer, const std::vector<std::string> &cells) {
    const bool blCut = terminal::Width(STDOUT_FILENO) > 0;
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

// The header line.
std::string BeginTable(Writer &writer) {
    std::vector<std::string> titles;
    writer.widths.resize(writer.columns.size());
    for (size_t i = 0; i < writer.columns.size(); ++i) {
        titles.push_back(Upper(writer.columns[i].name));
        writer.widths[i] = std::max({writer.widths[i], writer.columns[i].uWidth, titles[i].size()});
    }
    FitWidths(writer.widths, terminal::Width(STDOUT_FILENO));
    const std::string line = TableLine(writer, titles);
    return terminal::UseColour(writer.colour, STDOUT_FILENO) ? "\033[1m" + line + "\033[0m\n" : line + "\n";
}

std::string TableRow(Writer &writer, const Row &row) {
    const std::string heading = writer.nRows == 0 ? BeginTable(writer) : std::string();
    return heading + TableLine(writer, Cells(row)) + "\n";
}

std::string PlainRow(const Writer &writer, const Row &row) {
    std::string text = writer.nRows == 0 ? "" : "\n";
    for (size_t i = 0; i < writer.columns.size(); ++i) {
        if (!IsEmpty(row[i])) text += writer.columns[i].name + ": " + TerminalCell(row[i]) + "\n";
    }
    return text;
}

std::string CsvRow(const Row &row) {
    // A file is always UTF-8. A terminal that does not expect UTF-8 takes some of its bytes for
    // control codes.
    const bool blAscii = isatty(STDOUT_FILENO) == 1 && !text::IsUtf8Locale();
    std::vector<std::string> cells;
    for (const Value &value : row)
        cells.push_back(CellText(value, blAscii));
    return CsvLine(cells);
}

std::string RowText(Writer &writer, const Row &row) {
    switch (writer.format) {
        case Format::kPlain:
            return PlainRow(writer, row);
        case Format::kJson:
            return (writer.nRows == 0 ? "\n" : ",\n") + Object(writer, row);
        case Format::kNdjson:
            return Object(writer, row) + "\n";
        case Format::kCsv:
            return CsvRow(row);
        case Format::kTable:
            break;
    }
    return TableRow(writer, row);
}

void Put(Writer &writer, const std::string &text) {
    if (writer.blQueued)
        writer.queue.text += text;
    else
        standard_output::Write(text);
}

}  // namespace

std::vector<command_line::Option> Declare(Format &format, terminal::Colour &colour) {
    static const std::map<std::string, Format> formats = {{"table", Format::kTable},
                                                          {"plain", Format::kPlain},
                                                          {"json", Format::kJson},
                                                          {"ndjson", Format::kNdjson},
                                                          {"csv", Format::kCsv}};
    static const std::map<std::string, terminal::Colour> colours = {{"auto", terminal::Colour::kAuto},
                                                                    {"always", terminal::Colour::kAlways},
                                                                    {"never", terminal::Colour::kNever}};
    return {{.szNames = "--format",
             .target = [&format](const std::string &name) { format = formats.at(name); },
             .help = "Output format",
             .szValue = "FORMAT",
             .choices = {"table", "plain", "json", "ndjson", "csv"}},
            {.szNames = "--color",
             .target = [&colour](const std::string &name) { colour = colours.at(name); },
             .help = "Colour: auto (on a terminal without NO_COLOR), always or never",
             .szValue = "WHEN",
             .choices = {"auto", "always", "never"}}};
}

void Measure(Writer &writer, const Row &row) {
    if (writer.format != Format::kTable) return;
    const std::vector<std::string> cells = Cells(row);
    writer.widths.resize(cells.size());
    for (size_t i = 0; i < cells.size(); ++i)
        writer.widths[i] = std::max(writer.widths[i], text::Width(cells[i]));
}

void Begin(Writer &writer) {
    if (writer.format == Format::kCsv) {
        std::vector<std::string> names;
        for (const Column &column : writer.columns)
            names.push_back(column.name);
        Put(writer, CsvLine(names));
    } else if (writer.format == Format::kJson) {
        Put(writer, "[");
    }
}

void WriteRow(Writer &writer, const Row &row) {
    Put(writer, RowText(writer, row));
    ++writer.nRows;
}

void End(Writer &writer) {
    if (writer.format == Format::kJson) Put(writer, writer.nRows == 0 ? "]\n" : "\n]\n");
}

}  // namespace qiven::output
