// Results on standard output: rows of named, typed columns, in the format that the user chose.
//
//   table   columns for people; a cell that does not fit the terminal is cut, elsewhere it is written in full
//   plain   one "name: value" line per cell, an empty line between rows
//   json    one array of objects, also if it is empty
//   ndjson  one object per line
//   csv     RFC 4180 with a header line; UTF-8, on a terminal only if the locale is UTF-8, too
//
// Texts may hold any byte. table, plain and csv show them escaped (text.h), reversibly; list elements are
// joined with ";". json and ndjson are pure ASCII: bytes that are not UTF-8 become U+FFFD, and the object
// gets a member "raw" with the exact bytes of each such text in hex, by column name (a list of hex texts for
// a list). Columns without a value are omitted from plain and from objects, and are empty in csv.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "command_line.h"
#include "output/standard_output.h"
#include "output/terminal.h"

namespace qiven::output {

enum class Format { kTable, kPlain, kJson, kNdjson, kCsv };

// A field of something that has changed; texts as they came.
struct Change {
    std::string field, was, now;

    bool operator==(const Change &) const = default;
    bool operator<(const Change &other) const {
        return std::tie(field, was, now) < std::tie(other.field, other.was, other.now);
    }
};

// Moved, never copied: if memory runs out during a copy, libstdc++ 12 destroys a value that does not exist.
struct Value : std::variant<std::monostate, bool, uint64_t, std::string, std::vector<uint64_t>,
                            std::vector<std::string>, std::vector<Change>> {
    using variant::variant;
    Value() = default;
    Value(Value &&) = default;
    Value &operator=(Value &&) = default;
};
using Row = std::vector<Value>;  // one value per column, in their order

struct Column {
    std::string name;
    size_t uWidth = 0;  // usual width, for a table that is written row by row
};

struct Writer {
    Format format = Format::kTable;
    std::vector<Column> columns;
    terminal::Colour colour = terminal::Colour::kAuto;
    bool blQueued = false;  // written to the queue, which the caller sends
    standard_output::Queue queue;

    // Working state.
    std::vector<size_t> widths;
    uint64_t nRows = 0;
};

// --format and --color of a subcommand.
std::vector<command_line::Option> Declare(Format &format, terminal::Colour &colour);

// Widens the columns of a table to fit the row. Without a call they have their usual width.
void Measure(Writer &writer, const Row &row);

// Call Begin(), WriteRow() for each row, End(). Unless the writer has a queue, each writes to standard output
// at once.
void Begin(Writer &writer);
void WriteRow(Writer &writer, const Row &row);
void End(Writer &writer);

}  // namespace qiven::output
