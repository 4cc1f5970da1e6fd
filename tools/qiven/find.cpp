#include <CLI/CLI.hpp>

#include "commands.h"
#include "find_options.h"
#include "search.h"

namespace qiven {

void RegisterFind(CLI::App &app, std::function<int()> &run) {
    static find::Options options;
    CLI::App *pSub = app.add_subcommand("find", "Find the hosts on the local segment");
    find::AddOptions(*pSub, options);
    pSub->footer(
        "Ends by itself when all is quiet. Exit status: 0 found, 1 nothing or too few found, 2 usage,\n"
        "3 network or output failed, 130 interrupted (what was found is shown).");
    pSub->callback([&run] { run = [] { return find::Search(options); }; });
}

}  // namespace qiven
