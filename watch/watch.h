// The handle of a search.
#pragma once

#include "hosts.h"
#include "net/port.h"
#include "rounds.h"

struct QIVEN_WATCH {
    qiven::watch::Port port;
    qiven::watch::Table table;
    qiven::watch::Rounds rounds;
    QIVEN_SEND query{};
    nasinfo queryRecord{};

    uint32_t ulAskedUpTo = 0;        // interface that the round under way has reached
    bool blAsking = false;           // a round is under way
    bool blRoundOpen = false;        // the present round is not over
    uint32_t nInterfaceChanges = 0;  // that the table knows of
    uint64_t ullAloneUs = 0;         // when a new interface was last asked alone
    QIVEN_WATCH_EVENT round{};       // what is known of the present round
    QIVEN_WATCH_EVENT finished{};    // rounds that are over and were not told yet
    uint64_t ullLostBefore = 0;      // losses when the present round began

    qiven::watch::Node lost{qiven::watch::Of::kLost}, full{qiven::watch::Of::kFull};
    qiven::watch::Node interfaces{qiven::watch::Of::kInterfaces};
    qiven::watch::Node roundOver{qiven::watch::Of::kRound}, settled{qiven::watch::Of::kSettled};
    uint64_t ullLostTold = 0, ullLeftOutTold = 0;

    QIVEN_WATCH_EVENT event{};  // the last one taken
    uint64_t ullSequence = 0;
    qiven::watch::Host *pTaken = nullptr;  // vanished and told: to be freed
    nasinfo rgRecord[2];                   // of the event: the host's and the other's, or as it was
};

namespace qiven::watch {

bool IsUsable(const QIVEN_WATCH *pWatch);
// What the caller was shown last holds no longer.
void FreeTaken(QIVEN_WATCH &watch);
// The next event into watch.event; false if none waits.
bool TakeEvent(QIVEN_WATCH &watch);
void ArmWatch(QIVEN_WATCH &watch);

// Begins a search, with the first round.
void StartSearch(QIVEN_WATCH &watch, uint64_t ullNowUs, uint64_t ullUntilUs);
// Begins a round or goes on with it, asks on a new interface, or settles the search, if it is time.
void AskIfDue(QIVEN_WATCH &watch, uint64_t ullNowUs, uint64_t ullUntilUs);
// When that is next; 0: now.
uint64_t AskDueUs(const QIVEN_WATCH &watch);

}  // namespace qiven::watch
