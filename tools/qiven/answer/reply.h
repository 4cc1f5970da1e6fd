// Which queries are answered, and the answers.
#pragma once

#include "answer/run.h"

namespace qiven::answer {

// Something has arrived. It gets a sealed answer at once, or is to share the plain one, or is left alone.
void Consider(Run &run, const QIVEN_RECEIVED &received, Milliseconds now);

// Broadcasts the answer on the segment of an interface, sealed for the searcher if one is given, and says
// where that failed.
void Answer(Run &run, uint32_t ulIfIndex, const Searcher *pSearcher);

}  // namespace qiven::answer
