// Packet headers and the fixed queries, byte by byte.
#include <qiven/packet.h>

#include <sodium.h>

#define PLAIN_HEADER 0x12, 0x34, 0x56, 0x78, 'T', 'A', 'V', 'O'
#define SEALED_HEADER 0x12, 0x34, 0x55, 0x66, 'T', 'A', 'V', 'O'
// An integer field of 4 bytes.
#define INTEGER_FIELD(id, value) \
    id, 4, (value)&0xFF, (value) >> 8 & 0xFF, (value) >> 16 & 0xFF, (value) >> 24 & 0xFF
#define QUERY(field_a4)                                                \
    {                                                                  \
        PLAIN_HEADER, INTEGER_FIELD(PKT_ID_PKT_TYPE, QIVEN_PKT_QUERY), \
            INTEGER_FIELD(PKT_ID_FIELD_A4, field_a4)                   \
    }

const unsigned char stQIVENHeader[8] = {PLAIN_HEADER};
const uint32_t QIVENHeaderSize = sizeof stQIVENHeader;

const unsigned char stQIVENHeaderEncrypted[8] = {SEALED_HEADER};
const uint32_t QIVENHeaderSizeEncrypted = sizeof stQIVENHeaderEncrypted;

const unsigned char stQIVENBroadCast[10] = {PLAIN_HEADER, PKT_ID_MIN, 0};
const uint32_t QIVENBroadCastSize = sizeof stQIVENBroadCast;

const unsigned char stQIVENBroadCastV11[20] = QUERY(QIVEN_FIELD_A4_V11);
const uint32_t QIVENBroadCastSizeV11 = sizeof stQIVENBroadCastV11;

const unsigned char stQIVENBroadCastVQX20[20] = QUERY(QIVEN_FIELD_A4_VQX20);
const uint32_t QIVENBroadCastSizeVQX20 = sizeof stQIVENBroadCastVQX20;

static_assert(QIVEN_SEAL_OVERHEAD == crypto_box_SEALBYTES);
static_assert(QIVEN_SEALED_PLAIN_MAX + sizeof stQIVENHeaderEncrypted + QIVEN_SEAL_OVERHEAD ==
              QIVEN_PACKET_MAX);
