#include "verdict.h"

namespace qiven {

std::string OneLineVerdict() {
    return "no host answered: none is switched on in this segment, or a firewall drops UDP port 9999";
}

}  // namespace qiven
