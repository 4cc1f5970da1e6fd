#include "answer/serve.h"

#include <poll.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <new>

#include "answer/notify.h"
#include "answer/reply.h"
#include "exit_status.h"
#include "messages.h"
#include "output/format.h"
#include "output/text.h"
#include "signals.h"

namespace qiven::answer {

namespace {

constexpr Milliseconds kListening = 20;  // at a time

// Without memory, something is left out; the program goes on.
template <typename Function>
void Guard(Run &run, Function function) {
    try {
        function();
    } catch (const std::bad_alloc &) {
        Say(run.trouble, "out of memory");
    } catch (const std::exception &error) {
        Say(run.trouble, error.what());
    }
}

// Lists the interfaces, and says on which it answers if that is news.
void ListOutlets(Run &run, Milliseconds now) {
    run.listed = now;
    std::vector<Outlet> outlets = ListOutlets(*run.port);
    std::string text = Describe(*run.port, outlets);
    if (!run.blReady || text != run.said) {
        const char *szName = run.configuration.announcement.record.szHostName;
        const std::string line =
            fmt::format("answering as \"{}\" on {}, UDP port {}", szName, text, QIVEN_PORT);
        const std::string state = (run.blReady ? "STATUS=" : "READY=1\nSTATUS=") + text::Escape(line);
        Say(line);
        if (!Notify(state) && !run.blReady) Say("cannot notify the service manager");
        run.blReady = true;
    }
    run.outlets = std::move(outlets);
    run.said = std::move(text);
    run.blMayDiffer = false;
}

const char *LoadAgain(Run &run) {
    std::vector<std::string> errors;
    auto configuration = Load(run.options.source, errors);
    for (const std::string &error : errors)
        Say(error);
    if (!configuration) return "bad configuration: the previous one stays in use";
    if (configuration->filter != run.port->filter) {
        int iResult = 0;
        auto port = OpenPort(configuration->filter, run.options.blVerbose, iResult);
        if (!port) {
            Say(fmt::format("cannot use other interfaces: {}", QIVENWatchError(iResult)));
            return "cannot change the interfaces: the previous configuration stays in use";
        }
        run.port = std::move(port);
        run.blMayDiffer = true;
        run.listed = -kListPeriod;  // at once
    }
    run.configuration = std::move(*configuration);
    return "configuration reloaded";
}

void Reload(Run &run, Milliseconds now) {
    Guard(run, [now] { Notify(fmt::format("RELOADING=1\nMONOTONIC_USEC={}", now * 1000)); });
    const char *szResult = "not enough memory: the previous configuration stays in use";
    Guard(run, [&] { szResult = LoadAgain(run); });
    Say(szResult);
    Guard(run, [szResult] { Notify(fmt::format("READY=1\nSTATUS={}", szResult)); });
}

// Returns in time for the other things that are due, however much arrives.
void Listen(Run &run) {
    const Milliseconds end = rate_limit::Now() + kListening;
    for (Milliseconds now = 0; now < end;) {
        const QIVEN_RECEIVED *pReceived = QIVENEndpointReceive(run.port->pEndpoint);
        if (pReceived == nullptr) return;
        now = rate_limit::Now();
        Guard(run, [&] { Consider(run, *pReceived, now); });
    }
}

void DoDue(Run &run) {
    const Milliseconds now = rate_limit::Now();
    if (run.blMayDiffer && now - run.listed >= kListPeriod) Guard(run, [&] { ListOutlets(run, now); });
    while (const auto ulIfIndex = TakeDue(run.plain, now))
        Guard(run, [&] { Answer(run, *ulIfIndex, nullptr); });
}

int ToWait(const Run &run) {
    auto next = NextDue(run.plain);
    if (run.blMayDiffer) next = std::min(next.value_or(INT64_MAX), run.listed + kListPeriod);
    if (!next) return -1;
    return static_cast<int>(std::max<Milliseconds>(*next - rate_limit::Now(), 0));
}

void Wait(Run &run, const signals::Queue &signalQueue) {
    pollfd waitFor[] = {{signalQueue.fd, POLLIN, 0}, {QIVENEndpointFd(run.port->pEndpoint), POLLIN, 0}};
    poll(waitFor, 2, ToWait(run));
    // It also becomes readable when interfaces change.
    run.blMayDiffer |= waitFor[1].revents != 0;
}

// False if the program is to end.
bool HeedSignals(Run &run, const signals::Queue &signalQueue) {
    for (int iSignal = 0; (iSignal = signals::Take(signalQueue)) != 0;) {
        if (iSignal != SIGHUP) return false;
        Reload(run, rate_limit::Now());
    }
    return true;
}

}  // namespace

int Serve(const Options &options, const Configuration &configuration) {
    const messages::NeverWait never;
    const signals::Queue signalQueue({SIGHUP, SIGINT, SIGTERM});
    Run run{.options = options, .configuration = configuration};
    int iResult = 0;
    run.port = OpenPort(configuration.filter, options.blVerbose, iResult);
    if (!run.port) {
        Say(fmt::format("cannot answer: {}", QIVENWatchError(iResult)));
        return exit_status::kFailed;
    }
    do {
        DoDue(run);
        Wait(run, signalQueue);
        Listen(run);
    } while (HeedSignals(run, signalQueue));
    signals::LetGo(signalQueue);
    Guard(run, [] { Notify("STOPPING=1"); });
    return exit_status::kDone;
}

}  // namespace qiven::answer
