// Results on standard output: rows of named, typed columns, in the format the user chose.
//
//   table   columns for people; a cell that does not fit a terminal is cut, elsewhere it is written in full
//   plain   one "name: value" line per cell, an empty line between rows
//   json    one array of objects, also when it is empty
//   ndjson  one object per line
//   csv     RFC 4180 with a header line
//
// Texts may hold any byte. table, plain and csv show them escaped (text.h), reversibly; list elements are
// joined with ";". json and ndjson are pure ASCII: bytes that are no UTF-8 become U+FFFD, and then the object
// has a member "raw" with the exact bytes of each such text in hex, by column name (a list of hex texts for a
// list). Columns without a value are left out of plain and of objects, and are empty in csv.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace CLI {
class App;
}

namespace qiven::output {

enum class Format { kTable, kPlain, kJson, kNdjson, kCsv };
enum class Colour { kAuto, kAlways, kNever };

using Value = std::variant<std::monostate, bool, uint64_t, std::string, std::vector<uint64_t>,
                           std::vector<std::string>>;
using Row = std::vector<Value>;  // one value per column, in their order

struct Column {
    std::string name;
    size_t uWidth = 0;  // usual width in a table that is written row by row
};

struct Writer {
    Format format = Format::kTable;
    std::vector<Column> columns;
    std::optional<uint64_t> schema;  // first member "schema" of every object
    bool blStream = false;           // table: rows appear at once, in columns of the usual width
    Colour colour = Colour::kAuto;

    // Working state.
    std::vector<size_t> widths;
    std::vector<Row> held;  // table that is not written row by row
    uint64_t nRows = 0;
};

// Adds --format and --color to a subcommand.
void AddOptions(CLI::App &app, Format &format, Colour &colour);

// One walk: begin, rows, end. Everything is flushed at once. Each throws std::system_error when standard
// output cannot be written; main() turns that into a message and an exit status.
void Begin(Writer &writer);
void WriteRow(Writer &writer, const Row &row);
void End(Writer &writer);

// Standard output, checked and flushed.
void Write(const std::string &text);

// Ends the process as a write would (SIGPIPE) when whoever read standard output is gone: a long run without
// anything to write would not notice.
void EndWithoutReader();

// Columns of the terminal on this descriptor, or as COLUMNS says; 0 when there is neither.
size_t TerminalWidth(int fd);

// Whether to colour what goes to this descriptor: NO_COLOR and TERM=dumb are honoured.
bool UseColour(Colour colour, int fd);

}  // namespace qiven::output
