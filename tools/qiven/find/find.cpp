// The command line of "qiven find" as the parser gets it.
#include "commands.h"
#include "find/options.h"
#include "find/search.h"

namespace qiven::find {

command_line::Subcommand Command(Explain pfnExplain) {
    static Options options;
    return {
        .szHelp = "Find the hosts on the local segment",
        .options = Declare(options),
        .run = [pfnExplain] { return Search(options, pfnExplain); },
        .szFooter =
            "Stops by itself when no more hosts answer. Exit status: 0 found, 1 nothing or too few found,\n"
            "2 usage, 3 network or output failed, 130 interrupted (the hosts found so far are shown)."};
}

}  // namespace qiven::find
