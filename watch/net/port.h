// The discovery port with everything behind its one descriptor: what an endpoint is, and what a watch is made
// on.
#pragma once

#include <qiven/watch.h>
#include <sys/types.h>

#include "clock.h"
#include "interfaces.h"
#include "keys.h"
#include "sockets.h"

namespace qiven::watch {

struct Port {
    int fdEpoll = -1, fdTimer = -1;
    pid_t pid = 0;  // that opened it: a child of it may only close
    Sockets sockets;
    Interfaces interfaces;
    Keys keys;
    uint64_t ullArmedUs = kUnarmed;
    uint64_t ullRefused = 0, ullForOthers = 0, ullOwn = 0, ullOtherType = 0;
    uint32_t ulTypes = 0;  // as QIVEN_ENDPOINT_CONF has it
    bool blPlain = false, blShut = false, blGiveOwn = false, blGiveRefused = false, blNoPort = false;
    bool blAskedPlain = false;  // it has sent a query without an identifier that would tell it from others
    bool blOpened = false;      // the last datagram was a sealed one
    bool blInterfacesWait = false;  // news of interfaces that there was no time for
    uint64_t ullEmptiedUs = 0;
    unsigned char *pbPacket = nullptr;  // for building packets; malloc
    nasinfo record;                     // of the last datagram
    QIVEN_SEND request;                 // of the last packet sent, and its record
    nasinfo requestRecord;
    static constexpr uint64_t kUnarmed = UINT64_MAX - 1;
};

// Whether the time is up, without looking at the clock for every datagram.
struct Pace {
    uint64_t ullUntilUs;
    unsigned n = 0;

    // Opening a sealed datagram takes as long as many plain ones.
    bool IsOver(bool blOpened) {
        constexpr unsigned kBetweenLooks = 16;
        return (n++ % kBetweenLooks == 0 || blOpened) && NowUs() >= ullUntilUs;
    }
};

int OpenPort(Port &port, QIVEN_INTERFACE_FUNC pfnChoose, void *pvUser);
void ClosePort(Port &port);

// Takes in what there is to take, for so long at most; the sockets come first.
void Work(Port &port, uint64_t ullUntilUs);
// What a datagram says; false if it is not to be given out, which is counted. Its bytes stay where they are.
bool Read(Port &port, const Datagram &datagram, const unsigned char *pb, QIVEN_RECEIVED &received);
// The next datagram that is to be given out; false if there is none, or the time is up.
bool Take(Port &port, QIVEN_RECEIVED &received, uint64_t ullUntilUs);
// When the port itself wants to work again: 0 is now, kNever if only the kernel can tell.
uint64_t DueOf(const Port &port);
// Lets the descriptor become readable then at the latest.
void Arm(Port &port, uint64_t ullDueUs);
// Only what the port counts.
QIVEN_COUNTS CountsOf(const Port &port);

// Out of one interface; 0 or a negative errno. The socket is for the packets of one call.
int OpenSender();
int SendBy(Port &port, int fdSender, Interface &interface, const QIVEN_SEND &request, const QIVEN_TO &to);
// Out of all that it is for: as QIVENEndpointSend().
int Send(Port &port, const QIVEN_SEND &request, const QIVEN_TO &to);

// Copies a record of a caller or to a caller: as many bytes as both know.
void CopySized(void *pTo, uint32_t cbTo, const void *pFrom, uint32_t cbFrom);

}  // namespace qiven::watch
