// How broadcasts are spread over the sockets of a port. The kernel hands a broadcast to every socket on the
// port, and runs the filter of each before it charges its buffer: with filters that accept different shares,
// several sockets have the space of several buffers, without a privilege.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qiven::watch {

constexpr unsigned kSocketsMax = 8;

// The socket that a broadcast belongs to: a hash of the sender's address (network order) and of what tells
// the hosts apart that one sender speaks for, the first bytes behind the packet header.
unsigned SocketOf(uint32_t ulSeed, uint32_t ulSource, const unsigned char *pbDatagram, size_t cbDatagram);

// Lets a socket accept its share of the broadcasts and everything that is sent to this machine alone. False
// if the kernel refuses, or only pretends.
bool AttachShare(int fd, uint32_t ulSeed, unsigned uSocket);
// Lets a socket accept nothing.
bool AttachNothing(int fd);

}  // namespace qiven::watch
