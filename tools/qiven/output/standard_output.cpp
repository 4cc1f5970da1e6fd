#include "output/standard_output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <system_error>

namespace qiven::standard_output {

namespace {

// An administrator or another process can remove the cause while this process keeps running.
bool CanPass(int iError) {
    constexpr std::array kPassing = {EINTR, EAGAIN, ENOSPC, EDQUOT, EFBIG, EIO, ENOMEM, ENOBUFS};
    return std::find(kPassing.begin(), kPassing.end(), iError) != kPassing.end();
}

}  // namespace

// Not through stdio, which loses data if a signal interrupts a slow write.
void Write(std::string_view text) {
    while (!text.empty()) {
        const ssize_t cbWritten = write(STDOUT_FILENO, text.data(), text.size());
        if (cbWritten >= 0) {
            text.remove_prefix(static_cast<size_t>(cbWritten));
        } else if (errno == EAGAIN) {
            pollfd writable{STDOUT_FILENO, POLLOUT, 0};
            poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            ThrowError(errno);
        }
    }
}

bool Send(Queue &queue) {
    // A pipe that is ready takes this much without waiting.
    constexpr size_t kPiece = PIPE_BUF;
    queue.iError = 0;
    while (queue.cbSent < queue.text.size()) {
        const std::string_view left = std::string_view(queue.text).substr(queue.cbSent, kPiece);
        pollfd writable{STDOUT_FILENO, POLLOUT, 0};
        if (poll(&writable, 1, 0) < 1) return false;
        const ssize_t cbWritten = write(STDOUT_FILENO, left.data(), left.size());
        if (cbWritten < 0 && !CanPass(errno)) ThrowError(errno);
        if (cbWritten < 0) {
            queue.iError = errno == EINTR || errno == EAGAIN ? 0 : errno;
            return false;
        }
        queue.cbSent += static_cast<size_t>(cbWritten);
    }
    queue.text.clear();
    queue.cbSent = 0;
    return true;
}

void ThrowError(int iError) {
    throw std::system_error(iError, std::generic_category(), "cannot write to standard output");
}

void EndWithoutReader() {
    pollfd state{STDOUT_FILENO, 0, 0};
    if (poll(&state, 1, 0) != 1 || (state.revents & POLLERR) == 0) return;
    raise(SIGPIPE);
    ThrowError(EPIPE);
}

}  // namespace qiven::standard_output
