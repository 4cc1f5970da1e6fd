// Starts the command: standard descriptors, locale, and the last exception.
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

using namespace qiven::exit_status;

// If a standard descriptor were closed, the next socket would get its number, and output would be sent over
// the network. /dev/null, opened for reading, takes the number, and a write to it fails.
bool HoldStandardDescriptors() {
    for (int fd = 0; fd <= 2; ++fd) {
        if (fcntl(fd, F_GETFD) != -1 || errno != EBADF) continue;
        // cppcheck-suppress leakReturnValNotUsed ; it stays open
        if (open("/dev/null", O_RDONLY) != fd) return false;
    }
    return true;
}

int Finish(int iStatus) {
    if (fflush(stdout) == 0 && ferror(stdout) == 0) return iStatus;
    // With any other status, a failure has already been reported.
    if (iStatus == kDone || iStatus == kNotFound) {
        qiven::messages::Say(std::string("cannot write to standard output: ") + strerror(errno));
        return kFailed;
    }
    return iStatus;
}

}  // namespace

int main(int argc, char **argv) {
    if (!HoldStandardDescriptors()) return kFailed;
    setlocale(LC_CTYPE, "");
    try {
        return Finish(qiven::RunCommandLine(argc, argv));
    } catch (const std::exception &error) {
        qiven::messages::Say(error.what());
        return kFailed;
    }
}
