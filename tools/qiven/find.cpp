
#include "commands.h"
#include "find_options.h"
#include "search.h"

namespace qiven {

options::Subcommand FindCommand() {
    static find::Options options;
    return {
        .szHelp = "Find the hosts on the local segment",
        .options = find::Declare(options),
        .run = [] { return find::Search(options); },
        .szFooter =
            "Ends by itself when all is quiet. Exit status: 0 found, 1 nothing or too few found, 2 usage,\n"
            "3 network or output failed, 130 interrupted (what was found is shown)."};
}

}  // namespace qiven
