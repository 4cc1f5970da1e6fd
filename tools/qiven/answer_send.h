// Sends a host's record out of every active interface, each copy with that interface's own address.
#pragma once

#include <qiven/iface.h>

#include <array>
#include <cstdint>
#include <string>

#include "answer_config.h"
#include "answer_limits.h"

namespace qiven::answer {

// The interfaces as they were a moment ago: looked at anew for an answer, but not for every one of a burst.
struct Cards {
    std::array<QIVEN_NETIF, QIVEN_IFACE_MAX> table;
    int nCards = 0;
    limits::Milliseconds read = 0;
    bool blFresh = false;
};

// Whom an answer is sealed for. The key is 64 hexadecimal digits.
struct Recipient {
    uint32_t ulProcessID;
    std::string keyHex;
};

// Returns on how many interfaces the answer went out; trouble says what went wrong on the others, or why
// there was none, and is empty when all is well. Plain without a recipient.
int Send(Cards &cards, const Announcement &announcement, const Recipient *pRecipient,
         limits::Milliseconds now, std::string &trouble);

}  // namespace qiven::answer
