// Any bytes as a plain packet: two readers agree. (The target record writes records and reads them back.)
#include "same_read.h"

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const SlowReader read = fuzz::RequireSameRead(fuzz::AsText(pData, cbData), QIVENPacketRead);
    fuzz::Require(read.iResult == 0 || read.iResult == static_cast<int>(cbData) - 8,
                  "an accepted packet is consumed whole");
    return 0;
}
