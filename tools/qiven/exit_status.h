// Exit statuses of every subcommand, as the manual pages list them.
#pragma once

namespace qiven::exit_status {

constexpr int kDone = 0;
constexpr int kNotFound = 1;  // nothing or too little was found, or a fault by decode and doctor
constexpr int kUsage = 2;     // the command line or the digits to decode are wrong
constexpr int kFailed = 3;    // the network, a permission, or reading or writing failed
constexpr int kBadConfiguration = 4;

// The status that a shell reports for a process that was ended by a signal, for example by Ctrl-C.
constexpr int AfterSignal(int iSignal) {
    return 128 + iSignal;
}

}  // namespace qiven::exit_status
