// The interfaces that a search asks on.
#pragma once

#include <qiven/watch.h>

#include <string>

#include "interface_filter.h"

namespace qiven::find {

// Whether there is an interface to ask on.
bool IsAnyUsed(QIVEN_WATCH *pWatch);
// Whether a query went out.
bool IsAnyAsked(QIVEN_WATCH *pWatch);
// Why there is none to ask on, in a sentence.
std::string WhyNoneUsed(QIVEN_WATCH *pWatch, const interface_filter::Filter &filter);

}  // namespace qiven::find
