#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "commands.h"
#include "exit_status.h"
#include "messages.h"

namespace {

// A closed standard descriptor would be handed to the next socket, and output would go out by it. Reading
// ends of /dev/null keep the place, and a write to them fails as it should.
bool HoldStandardDescriptors() {
    for (int fd = 0; fd <= 2; ++fd) {
        if (fcntl(fd, F_GETFD) != -1 || errno != EBADF) continue;
        // cppcheck-suppress leakReturnValNotUsed ; it is to stay open
        if (open("/dev/null", O_RDONLY) != fd) return false;
    }
    return true;
}

int Finish(int iStatus) {
    if (fflush(stdout) == 0 && ferror(stdout) == 0) return iStatus;
    // A status that says more than "done" has had its message already.
    if (iStatus == qiven::kDone || iStatus == qiven::kNothing) {
        qiven::messages::Say(std::string("cannot write to standard output: ") + strerror(errno));
        return qiven::kNetwork;
    }
    return iStatus;
}

}  // namespace

int main(int argc, char **argv) {
    if (!HoldStandardDescriptors()) return qiven::kNetwork;
    setlocale(LC_CTYPE, "");
    try {
        return Finish(qiven::RunCommandLine(argc, argv));
    } catch (const std::exception &error) {
        qiven::messages::Say(error.what());
        return qiven::kNetwork;
    }
}
