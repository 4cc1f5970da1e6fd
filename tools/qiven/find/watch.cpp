#include "find/watch.h"

namespace qiven::find {

namespace {

constexpr char kAppeared[] = "appeared";
constexpr char kChanged[] = "changed";
constexpr char kVanished[] = "vanished";

// The event that the reader does not know of; null if there is none, or if it must wait.
const char *EventOf(const Host &host, Clock::time_point since) {
    const bool blSilent = host.heard < since;
    if (!host.blReported) return blSilent || host.blDoubtful ? nullptr : kAppeared;
    if (blSilent) return kVanished;
    return host.blChanged && Clock::now() - host.reported >= kChangePause ? kChanged : nullptr;
}

bool Write(Watch &watch, Report &report, Host &host, const char *szEvent) {
    constexpr size_t kLine = 1024;
    if (!IsReady(report) || !rate_limit::Take(watch.lines, rate_limit::Now())) return false;
    const size_t cbRow = Event(report, szEvent, host);
    watch.lines.nThousandths -= static_cast<int64_t>(cbRow / kLine) * rate_limit::kToken;
    host.blReported = host.blHeld = true;
    host.blChanged = false;
    host.reported = Clock::now();
    return true;
}

// The order of events, for a flood of forged hosts, which rarely answer twice.
enum class Rank { kConfirmed, kKnown, kRest };

Rank RankOf(const Host &host, const char *szEvent) {
    if (szEvent == kAppeared && host.blConfirmed) return Rank::kConfirmed;
    return szEvent == kChanged ? Rank::kKnown : Rank::kRest;
}

// Considers every host, beginning where the last call stopped.
void ReportRank(Watch &watch, Report &report, Hosts &hosts, Clock::time_point since, Rank rank) {
    // Each rank leaves half of the lines to the next one.
    const int64_t nReserve = rank == Rank::kRest ? 0 : watch.lines.nThousandths / 2;
    bool blBehind = false;
    for (size_t nLeft = hosts.places.size(); nLeft > 0 && !blBehind; --nLeft) {
        if (watch.uNext >= hosts.places.size()) watch.uNext = 0;
        Host &host = hosts.places[watch.uNext]->second;
        const bool blSilent = host.heard < since;
        const char *szEvent = EventOf(host, since);
        const bool blDue = szEvent != nullptr && RankOf(host, szEvent) == rank;
        const bool blReported =
            blDue && watch.lines.nThousandths >= nReserve && Write(watch, report, host, szEvent);
        blBehind = blDue && !blReported;
        // The last host takes the place of one that is removed.
        if (blSilent && (!host.blReported || (blReported && szEvent == kVanished))) {
            Remove(hosts, host);
        } else if (!blBehind) {
            if (!blSilent) ForgetAddresses(hosts, host, since);
            ++watch.uNext;
        }
    }
    watch.blBehind = watch.blBehind || blBehind;
}

}  // namespace

void ReportNow(Watch &watch, Report &report, Host &host) {
    const char *szEvent = watch.blBehind ? nullptr : EventOf(host, host.heard);
    if (szEvent != nullptr) watch.blBehind = !Write(watch, report, host, szEvent);
}

void ReportWaiting(Watch &watch, Report &report, Hosts &hosts, Clock::time_point since) {
    watch.blBehind = false;
    rate_limit::Refill(watch.lines, rate_limit::Now());
    for (const Rank rank : {Rank::kConfirmed, Rank::kKnown, Rank::kRest})
        ReportRank(watch, report, hosts, since, rank);
}

}  // namespace qiven::find
