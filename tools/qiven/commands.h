// The subcommands, and the command line that they make up.
#pragma once

#include <functional>
#include <string_view>

#include "options.h"

namespace CLI {
class App;
}

namespace qiven {

options::Subcommand AnswerCommand();
options::Subcommand FindCommand();
options::Subcommand InterfacesCommand();
options::Subcommand DecodeCommand();
options::Subcommand DoctorCommand();

// The whole command line: all of these, and what they have in common. A subcommand that is chosen sets run.
// When the first word of a command line is given and names a subcommand, the others are left out: making
// their options takes as long as a search.
void RegisterAll(CLI::App &app, std::function<int()> &run, std::string_view first = {});

// Parses the command line and runs the subcommand; returns the exit status.
int RunCommandLine(int argc, char **argv);

}  // namespace qiven
