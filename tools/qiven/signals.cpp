#include "signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace qiven::signals {

Queue::Queue(std::initializer_list<int> signals) {
    sigemptyset(&set);
    for (const int iSignal : signals)
        sigaddset(&set, iSignal);
    fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd == -1) throw std::system_error(errno, std::generic_category(), "cannot wait for signals");
    pthread_sigmask(SIG_BLOCK, &set, &before);
}

Queue::~Queue() {
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    close(fd);
}

int Take(const Queue &queue) {
    signalfd_siginfo info{};
    const bool blTaken = read(queue.fd, &info, sizeof info) == sizeof info;
    return blTaken ? static_cast<int>(info.ssi_signo) : 0;
}

void LetGo(const Queue &queue) {
    pthread_sigmask(SIG_UNBLOCK, &queue.set, nullptr);
}

}  // namespace qiven::signals
