// The output of `qiven decode` for one packet.
#pragma once

#include "decode/input.h"
#include "packet_walk.h"

namespace qiven::decode {

void ShowText(const InputPacket &packet, const packet_walk::PacketWalk &walk);

// One element of a JSON array.
void ShowJson(const InputPacket &packet, const packet_walk::PacketWalk &walk, bool blFirst);

}  // namespace qiven::decode
