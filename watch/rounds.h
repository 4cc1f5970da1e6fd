// When a search asks, and when it has settled: arithmetic of times alone.
#pragma once

#include <cstdint>

namespace qiven::watch {

struct Rounds {
    uint64_t ullPeriodUs = 0;  // after the search has settled; 0: no more queries
    uint64_t ullLimitUs = 0;
    uint64_t ullStartUs = 0, ullQueryUs = 0, ullNewUs = 0, ullHeardUs = 0;
    unsigned nRounds = 0;  // of this search
    bool blSettled = false;
    bool blNews = false;     // since the last query: new hosts or losses
    bool blCrowded = false;  // since then, more hosts answered than are kept: their burst may never end
    bool blBacklog = false;  // answers wait to be looked at
};

void Start(Rounds &rounds, uint64_t ullNowUs);
void NoteQuery(Rounds &rounds, uint64_t ullNowUs);
// kNever: not before something else happens.
uint64_t NextQueryUs(const Rounds &rounds, bool blHosts);
uint64_t SettlesUs(const Rounds &rounds, bool blHosts);

}  // namespace qiven::watch
