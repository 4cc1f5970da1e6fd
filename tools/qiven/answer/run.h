// The state of one run of "qiven answer".
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "answer/config.h"
#include "answer/limits.h"
#include "answer/log.h"
#include "answer/port.h"

namespace qiven::answer {

struct Options {
    ConfigSource source;
    bool blNeverSeal = false, blVerbose = false, blCheckOnly = false;
};

constexpr Milliseconds kListPeriod = 1000;

struct Run {
    const Options &options;
    Configuration configuration;
    std::unique_ptr<Port> port{};
    std::vector<Outlet> outlets{};
    std::string said{};                  // of them
    Milliseconds listed = -kListPeriod;  // when they were
    bool blMayDiffer = true;             // from the interfaces as they are now
    bool blReady = false;
    SharedAnswers plain{};
    SealedAnswers sealed{};
    LimitedLog trouble{{5, 1}};
    LimitedLog refusals{{20, 5}};  // shown if that is wanted
};

}  // namespace qiven::answer
