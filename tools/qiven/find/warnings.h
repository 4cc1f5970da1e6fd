// What a search says beside its rows: interfaces that cannot be asked, hosts that contradict each other, and
// answers that were lost.
#pragma once

#include <qiven/watch.h>

#include <cstdint>
#include <set>
#include <string>

#include "find/report.h"
#include "rate_limit.h"

namespace qiven::find {

struct Warnings {
    std::set<std::string> said;  // once each
    // Strangers cause some of them.
    rate_limit::Bucket lines{10, 1};
    uint64_t ullLost = 0;
    bool blFull = false;
};

// Says at once what the user can act on while the search goes on.
void Note(Warnings &warnings, Report &report, const QIVEN_WATCH_EVENT &event);
// At the end: the datagrams that the kernel dropped.
void SayLosses(const Warnings &warnings);

}  // namespace qiven::find
