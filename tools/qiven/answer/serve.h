// Answers until a signal ends it.
#pragma once

#include "answer/run.h"

namespace qiven::answer {

// The result is the exit status.
int Serve(const Options &options, const Configuration &configuration);

}  // namespace qiven::answer
