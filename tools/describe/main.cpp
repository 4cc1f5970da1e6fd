// qiven-describe bash|zsh|fish          writes the completion for a shell
// qiven-describe manual [SUBCOMMAND]    copies a manual page from standard input, with its lists filled in
#include <cstdio>
#include <cstring>

#include "command.h"

using namespace qiven::describe;

namespace {

int Manual(const std::vector<Command> &commands, std::string_view name) {
    for (const Command &command : commands) {
        if (command.name != name) continue;
        WriteManual(commands, command);
        return 0;
    }
    fprintf(stderr, "qiven-describe: no such subcommand\n");
    return 2;
}

int Write(std::string_view what, std::string_view name) {
    const std::vector<Command> commands = Commands();
    if (what == "manual") return Manual(commands, name);
    if (what == "bash") WriteBash(commands);
    if (what == "zsh") WriteZsh(commands);
    if (what == "fish") WriteFish(commands);
    return what == "bash" || what == "zsh" || what == "fish" ? 0 : 2;
}

}  // namespace

int main(int argc, char **argv) {
    const int iStatus = Write(argc > 1 ? argv[1] : "", argc > 2 ? argv[2] : "");
    if (fflush(stdout) == 0 && ferror(stdout) == 0) return iStatus;
    perror("qiven-describe: standard output");
    return 1;
}
