/* Decodes and encodes the packet of a file once, so that the instructions can be counted. */
#include <qiven/packet.h>

#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv) {
    static unsigned char rgPacket[QIVEN_PACKET_MAX];
    static nasinfo record;
    QIVEN_SEND send = {&record, 0, {0}};
    int cbPacket = 0;
    FILE *pf = argc == 2 ? fopen(argv[1], "rb") : NULL;
    if (pf != NULL) cbPacket = (int)fread(rgPacket, 1, sizeof rgPacket, pf);
    if (QIVENPacketRead(NULL, rgPacket, cbPacket, &record) <= 0) return 1;

    /* The fields of the packet in their order; a run of elements or chunks is listed once. */
    for (int i = (int)QIVENHeaderSize; i < cbPacket; i += 2 + rgPacket[i + 1]) {
        const int blAgain = send.nPktID > 0 && send.rgPktID[send.nPktID - 1] == rgPacket[i];
        if (!blAgain && rgPacket[i] != PKT_ID_CONTINUATION) send.rgPktID[send.nPktID++] = rgPacket[i];
    }
    int cbBuffer = QIVEN_PACKET_MAX;
    unsigned char *pBuffer = malloc(QIVEN_PACKET_MAX);
    return QIVENPacketWrite(NULL, &pBuffer, &cbBuffer, &send) == cbPacket ? 0 : 1;
}
