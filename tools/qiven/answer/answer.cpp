// The subcommand: answers the queries of searchers with the record of this host.
#include "answer/config.h"
#include "answer/log.h"
#include "answer/serve.h"
#include "commands.h"
#include "exit_status.h"
#include "output/format.h"

namespace qiven::answer {

namespace {

constexpr const char *kDefaultPath = "/etc/qiven/answer.toml";

int Start(Options &options) {
    ConfigSource &source = options.source;
    if (source.path.empty() && !source.ulModel) source.path = kDefaultPath;
    std::vector<std::string> errors;
    const auto configuration = Load(source, errors);
    for (const std::string &error : errors)
        Say(error);
    if (!configuration) return exit_status::kBadConfiguration;
    return options.blCheckOnly ? exit_status::kDone : Serve(options, *configuration);
}

std::vector<command_line::Option> Declare(Options &options) {
    ConfigSource &source = options.source;
    std::vector<command_line::Option> all{
        {.szNames = "--config",
         .target = &source.path,
         .help = fmt::format("Configuration file (default {}, unless --model is given)", kDefaultPath),
         .szValue = "FILE"},
        {"--check-config", &options.blCheckOnly,
         "Check the configuration and exit: status 0, or 4 if it is bad"},
        {"--name", &source.name, "Host name (default: this machine's)"},
        {"--model", &source.ulModel, "Model number"},
        {"--ident", &source.ident, "Host identifier"},
        {"--second", &source.ulSecond, "Second number of a host-list line (default 240)"},
        {"--plain", &options.blNeverSeal, "Do not seal answers, even if a query carries a key"},
        {"--answer-off-segment", &source.blOffSegment,
         "Answer senders whose address is not of the segment, too"},
        {"--verbose", &options.blVerbose, "Say why something is not answered"}};
    const auto filter = interface_filter::Declare(source.filter, "");
    all.insert(all.end() - 2, filter.begin(), filter.end());
    return all;
}

}  // namespace

command_line::Subcommand Command() {
    static Options options;
    return {.szHelp = "Answer the queries of searchers, as a host", .options = Declare(options), .run = [] {
                return Start(options);
            }};
}

}  // namespace qiven::answer
