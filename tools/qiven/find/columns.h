// The columns of "qiven find". Their names are those of docs/schema/find.schema.json.
#pragma once

#include <string>
#include <vector>

#include "find/host_table.h"
#include "output.h"

namespace qiven::find {

bool IsColumn(const std::string &name);
// The names of all columns, for a message.
std::string AllColumns();

// The named columns, or the default ones of the format.
std::vector<output::Column> ChooseColumns(const std::vector<std::string> &names, output::Format format);

output::Value ValueOf(const Host &host, const nasinfo &record, const std::string &column);
output::Row MakeRow(const Host &host, const std::vector<output::Column> &columns);

// Sorts by a column, stably: texts by their bytes, addresses and numbers by value.
void Sort(std::vector<const Host *> &hosts, const std::string &column);

}  // namespace qiven::find
