#include "answer/log.h"

#include <exception>

#include "messages.h"
#include "output/format.h"

namespace qiven::answer {

void Say(std::string_view line) noexcept {
    messages::Say(line, "answer");
}

void Say(LimitedLog &log, std::string_view line) noexcept {
    ++log.nOmitted;
    if (!Take(log.lines, rate_limit::Now())) return;
    try {
        const uint64_t nMore = log.nOmitted - 1;
        Say(nMore == 0 ? std::string(line) : fmt::format("{} ({} more lines were omitted)", line, nMore));
        log.nOmitted = 0;
    } catch (const std::exception &) {  // the next line counts it
    }
}

}  // namespace qiven::answer
