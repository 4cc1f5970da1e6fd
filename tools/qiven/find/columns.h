// What "qiven find" can show of a host. The names are those of docs/schema/find.schema.json.
#pragma once

#include <string>
#include <vector>

#include "find/host_table.h"
#include "output.h"

namespace qiven::find {

bool IsColumn(const std::string &name);
// The names of all columns, for a message.
std::string AllColumns();

// The columns asked for, or those that the format shows by default.
std::vector<output::Column> ChooseColumns(const std::vector<std::string> &names, output::Format format);

output::Value ValueOf(const Host &host, const nasinfo &record, const std::string &column);
output::Row MakeRow(const Host &host, const std::vector<output::Column> &columns);

// Sorts by a column, stably; texts by their bytes, addresses and numbers by value.
void Sort(std::vector<const Host *> &hosts, const std::string &column);

// "2026-01-31T08:15:00.123Z"
std::string UtcTime(WallClock::time_point time);

}  // namespace qiven::find
