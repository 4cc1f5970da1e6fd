// The subcommands. Each function adds its subcommand to the command line and, when it is chosen, sets run to
// what main() shall call; the result of run is the exit status (exit.h).
#pragma once

#include <functional>
#include <string_view>

namespace CLI {
class App;
}

namespace qiven {

void RegisterAnswer(CLI::App &app, std::function<int()> &run);
void RegisterFind(CLI::App &app, std::function<int()> &run);
void RegisterInterfaces(CLI::App &app, std::function<int()> &run);
void RegisterDecode(CLI::App &app, std::function<int()> &run);
void RegisterDoctor(CLI::App &app, std::function<int()> &run);

// The whole command line: all of these, and what they have in common. When the first word of a command line
// is given and names a subcommand, the others are left out: making their options takes as long as a search.
void RegisterAll(CLI::App &app, std::function<int()> &run, std::string_view first = {});

}  // namespace qiven
