#pragma once

#include <string>

namespace qiven {

// Why nothing was found, in one sentence with the remedy.
std::string OneLineVerdict();

}  // namespace qiven
