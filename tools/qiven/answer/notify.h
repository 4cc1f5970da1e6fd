#pragma once

#include <string>

namespace qiven::answer {

// Tells the service manager about the state of the service, in the words of sd_notify(3). Does nothing when
// no manager has asked for it; false when one has and could not be told.
bool Notify(const std::string &state);

}  // namespace qiven::answer
