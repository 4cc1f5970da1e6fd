// Exit statuses of every subcommand; the man pages promise them.
#pragma once

namespace qiven {

constexpr int kDone = 0;
constexpr int kNothing = 1;        // nothing found, or fewer than expected
constexpr int kUsage = 2;          // the command line was wrong
constexpr int kNetwork = 3;        // network, permission or output failed
constexpr int kConfig = 4;         // bad configuration
constexpr int kInterrupted = 130;  // what a shell reports for Ctrl-C

}  // namespace qiven
