// The subcommands, and the command line that they make up.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "command_line.h"
#include "interface_filter.h"

namespace CLI {
class App;
}

namespace qiven {

// Each is defined in the directory of its name, in the file of its name. None knows the others: a subcommand
// that needs another one is handed its function.
namespace answer {
command_line::Subcommand Command();
}
namespace decode {
command_line::Subcommand Command();
}
namespace doctor {
command_line::Subcommand Command();
// The most likely cause in one sentence with its remedy, or that nothing is wrong on this machine. Takes at
// most about 0.3 s; sends one query out of every usable interface.
std::string OneLineVerdict(const interface_filter::Filter &filter);
}  // namespace doctor
namespace find {
// Says why no host was found on the interfaces of the search.
using Explain = std::string (*)(const interface_filter::Filter &filter);
command_line::Subcommand Command(Explain pfnExplain);
}  // namespace find
namespace interfaces {
command_line::Subcommand Command();
}

// Adds all subcommands and the common options to the parser. A subcommand that is chosen sets run. If first,
// the first word of the command line, names a subcommand, the others are left out: declaring their options
// takes as long as a search.
void RegisterAll(CLI::App &app, std::function<int()> &run, std::string_view first = {});

// Parses the command line and runs the subcommand; returns the exit status.
int RunCommandLine(int argc, char **argv);

}  // namespace qiven
