#include "container_interfaces.h"

#include <algorithm>

#include "output/text.h"

namespace qiven {

bool IsContainerInterface(const std::string &name) {
    return std::any_of(kContainerInterfaces.begin(), kContainerInterfaces.end(),
                       [&name](const char *szPattern) { return text::Matches(szPattern, name); });
}

}  // namespace qiven
