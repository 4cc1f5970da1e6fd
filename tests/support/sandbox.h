// A sandbox for a test: namespaces with an empty network and private directories.
//
// Enter() may be called again and again, by root or by an ordinary user where the kernel allows user
// namespaces; each call leaves the machine of the one before. Whatever goes wrong in here throws
// std::runtime_error, which ends the test as failed: a machine that allows no namespaces proves nothing.
#pragma once

#include <string>

namespace sandbox {

// Moves the process, which must be single-threaded, into new mount and network namespaces: mounts stay
// private, /sys shows the new network, the loopback interface is up.
void Enter();

// Covers a directory with an empty, writable one. Its former content is inaccessible until the next Enter().
void PrivateDir(const std::string &path);

// Runs a command line in the shell and returns what it wrote. Throws with its output when it fails.
std::string Run(const std::string &command);

// Also creates missing parent directories.
void WriteFile(const std::string &path, const std::string &text);
std::string ReadFile(const std::string &path);

// Adds an Ethernet device that is up, has a carrier and swallows what is sent by it. The address is what
// "ip address add" takes ("10.0.0.1/24 brd +"); without one the device has none.
void AddEthernet(const std::string &name, const std::string &mac, const std::string &address = "");

}  // namespace sandbox
