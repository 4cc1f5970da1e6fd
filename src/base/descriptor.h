// A file descriptor that is closed when its scope ends.
#pragma once

#include <unistd.h>

namespace qiven::base {

struct Descriptor {
    int fd = -1;

    explicit Descriptor(int fdOwned) : fd(fdOwned) {}
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    bool IsOpen() const { return fd >= 0; }
};

}  // namespace qiven::base
