// Why was nothing found? The short form, for those who have just found nothing.
#pragma once

#include <string>

namespace qiven {

// The likeliest cause in one sentence with its remedy, or that nothing is wrong on this machine. Takes at
// most about 0.3 s; sends one query by every usable interface.
std::string OneLineVerdict();

}  // namespace qiven
