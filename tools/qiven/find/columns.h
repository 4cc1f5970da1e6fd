// What "qiven find" can show of a host. The names are those of docs/schema/find.schema.json.
#pragma once

#include <qiven/watch.h>

#include <cstdint>
#include <string>
#include <vector>

#include "output/output.h"

namespace qiven::find {

bool IsColumn(const std::string &name);
// The names of all columns, for a message.
std::string AllColumns();

// The columns asked for, or those that the format shows by default.
std::vector<output::Column> ChooseColumns(const std::vector<std::string> &names, output::Format format);

// Whether the columns of a host are known with its first answer, so that its row need not wait for others.
bool AreFinal(const std::vector<output::Column> &columns);

output::Value ValueOf(const QIVEN_WATCH_HOST &host, const std::string &column);
// Fills the rest of the row.
void AddCells(output::Row &row, const QIVEN_WATCH_HOST &host, const std::vector<output::Column> &columns);
// Texts are sorted by their bytes, addresses and numbers by value.
output::Value SortKey(const QIVEN_WATCH_HOST &host, const std::string &column);

// What is different in a host that has changed.
std::vector<output::Change> Changes(const QIVEN_WATCH_EVENT &event);

}  // namespace qiven::find
