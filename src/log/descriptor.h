// File descriptors that close with their scope.
#pragma once

#include <unistd.h>

namespace qiven {

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

}  // namespace qiven
