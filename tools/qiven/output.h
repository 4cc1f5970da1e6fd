// Results on standard output: rows of named, typed columns, in the format the user chose.
//
//   table   columns for people; a cell that does not fit a terminal is cut, elsewhere it is written in full
//   plain   one "name: value" line per cell, an empty line between rows
//   json    one array of objects, also when it is empty
//   ndjson  one object per line
//   csv     RFC 4180 with a header line; UTF-8, on a terminal only where the locale is
//
// Texts may hold any byte. table, plain and csv show them escaped (text.h), reversibly; list elements are
// joined with ";". json and ndjson are pure ASCII: bytes that are no UTF-8 become U+FFFD, and then the object
// has a member "raw" with the exact bytes of each such text in hex, by column name (a list of hex texts for a
// list). Columns without a value are left out of plain and of objects, and are empty in csv.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "command_line.h"

namespace qiven::output {

enum class Format { kTable, kPlain, kJson, kNdjson, kCsv };
enum class Colour { kAuto, kAlways, kNever };

// Moved, never copied: libstdc++ 12 destroys a copy that ran out of memory by an index that was never set.
struct Value : std::variant<std::monostate, bool, uint64_t, std::string, std::vector<uint64_t>,
                            std::vector<std::string>> {
    using variant::variant;
    Value() = default;
    Value(Value &&) = default;
    Value &operator=(Value &&) = default;
};
using Row = std::vector<Value>;  // one value per column, in their order

struct Column {
    std::string name;
    size_t uWidth = 0;  // usual width in a table that is written row by row
};

struct Writer {
    Format format = Format::kTable;
    std::vector<Column> columns;
    std::optional<uint64_t> schema;  // first member "schema" of every object
    Colour colour = Colour::kAuto;
    bool blLater = false;  // the caller sends what is written: Send()

    // Working state.
    std::vector<size_t> widths;
    uint64_t nRows = 0;
    std::string unsent;
    size_t cbSent = 0;  // of what is called unsent
    int iError = 0;  // why standard output took nothing, if there is another reason than a reader that waits
};

// --format and --color of a subcommand.
std::vector<command_line::Option> Declare(Format &format, Colour &colour);

// Makes the columns of a table as wide as the row needs. Without it they have their usual width.
void Measure(Writer &writer, const Row &row);

// One walk: begin, rows, end. All is sent at once, unless the writer is told to send later. Each throws
// std::system_error if standard output cannot be written; main() turns that into a message and an exit
// status.
void Begin(Writer &writer);
void WriteRow(Writer &writer, const Row &row);
void End(Writer &writer);

// Sends what was written, as far as standard output takes it without waiting: true if that is all. Without
// space on the disk and the like, later calls try again. Throws std::system_error if it will never take it.
bool Send(Writer &writer);

// Standard output, checked; waits for its reader.
void Write(std::string_view text);

// Ends the process as a write would (SIGPIPE) when whoever read standard output is gone: a long run without
// anything to write would not notice.
void EndWithoutReader();

// Columns of the terminal on this descriptor, or as COLUMNS says; 0 when there is neither.
size_t TerminalWidth(int fd);

// Whether to colour what goes to this descriptor: NO_COLOR and TERM=dumb are honoured.
bool UseColour(Colour colour, int fd);

}  // namespace qiven::output
