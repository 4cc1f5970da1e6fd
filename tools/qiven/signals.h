// Signals as a descriptor: a loop reads them between two pieces of work, so that no code runs inside another.
#pragma once

#include <signal.h>

#include <initializer_list>

namespace qiven::signals {

// Blocks the signals of this thread while it exists. Throws std::system_error without a descriptor.
struct Queue {
    Queue(std::initializer_list<int> signals);
    ~Queue();
    Queue(const Queue &) = delete;
    Queue &operator=(const Queue &) = delete;

    sigset_t set{}, before{};
    int fd = -1;  // readable when a signal has come
};

// The next signal, or 0.
int Take(const Queue &queue);

// From now on the signals act as usual, so that a second Ctrl-C ends a program that still has work to do.
void LetGo(const Queue &queue);

}  // namespace qiven::signals
