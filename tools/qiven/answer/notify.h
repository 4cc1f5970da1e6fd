// Status messages to the service manager.
#pragma once

#include <string>

namespace qiven::answer {

// Sends the state of the service, in the format of sd_notify(3), if a service manager has requested it. False
// if that failed.
bool Notify(const std::string &state);

}  // namespace qiven::answer
