/*
 * qiven/packet.h - wire format, field table, packet writer and reader, sealed packets. Conventions:
 * qiven/log.h.
 *
 * A plain packet is one UDP datagram of at most 8192 bytes: the 8 bytes of stQIVENHeader, then fields back to
 * back until the datagram ends. A field is one byte identifier (1 to 255), one byte value length L (0 to 255)
 * and L bytes of value. Texts travel without their NUL; integers have 4 or 8 bytes, little-endian unless the
 * table says QIVENPKT_KEEP_ENDIAN; every non-empty array element is a field of its own.
 *
 * A sealed packet is the 8 bytes of stQIVENHeaderEncrypted, then a libsodium sealed box (crypto_box_seal:
 * X25519, XSalsa20-Poly1305, 48 bytes longer than its content) around a complete plain packet. It proves that
 * the sender knew the recipient's public key, and nothing about who the sender is.
 */
#ifndef QIVEN_PACKET_H
#define QIVEN_PACKET_H

#include <qiven/log.h>
#include <qiven/nasinfo.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Largest packet, header included, plain or sealed. */
#define QIVEN_PACKET_MAX 8192
/** A reader accepts at most this many fields in one packet. */
#define QIVEN_FIELDS_MAX 64
/** Room for identifiers in a send request; the listing functions refuse to append beyond it. */
#define QIVEN_SEND_MAX 256

/** Identifiers are greater than PKT_ID_MIN and smaller than PKT_ID_MAX. */
#define PKT_ID_MIN 0
#define PKT_ID_MAX 256
/** The width of an array element is smaller than this. */
#define PKT_MAX_STRING_LEN 255

#define QIVENPKT_LITTLE_ENDIAN 0 /**< integer travels little-endian: table value and writer mode */
#define QIVENPKT_HOST_ENDIAN 1   /**< reader mode: convert the little-endian wire value to host order */
#define QIVENPKT_KEEP_ENDIAN 2   /**< integer bytes copied as they are: table value, both modes */

#define PKT_ID_LONG_TEXT 0x2A    /**< long text, first chunk */
#define PKT_ID_CONTINUATION 0x72 /**< long text, further chunks */

/** @name Field types (QIVEN_FIELD_ATTRIB::ulType) */
/** @{ */
#define FIELD_STRING 0  /**< text in a character array */
#define FIELD_INTEGER 1 /**< unsigned integer of 4 or 8 bytes */
#define FIELD_ARRAY 2   /**< QIVEN_ARRAY_MAX texts of cbField bytes each */
#define FIELD_NONE 3    /**< known identifier without a slot in the record */
/** @} */

#define QIVEN_FIELD_COUNT 80      /**< entries of grgfieldAttribs */
#define QIVEN_PARSER_COUNT 3      /**< entries of grgfieldParsers */
#define QIVEN_ARRAY_FIELD_COUNT 4 /**< entries of grgFieldArrayCountMap */

/** One packet field: what its identifier carries and where it lies in the record. */
typedef struct QIVEN_FIELD_ATTRIB {
    uint32_t ulPktId;     /**< identifier, 1 to 255 */
    uint32_t ulType;      /**< FIELD_STRING, FIELD_INTEGER, FIELD_ARRAY or FIELD_NONE */
    uint32_t ulOffset;    /**< of the slot in nasinfo; 0 for FIELD_NONE */
    uint32_t cbField;     /**< width: integer, text with its NUL, or one array element; 0 for FIELD_NONE */
    uint32_t ulEndian;    /**< QIVENPKT_LITTLE_ENDIAN or QIVENPKT_KEEP_ENDIAN; 0 for non-integers */
    uint32_t ulBasicMask; /**< bit that the reader records when the field is present, or 0 */
} QIVEN_FIELD_ATTRIB;

/**
 * Reads one field into its slot.
 * @param szPKTInput the field's length byte
 * @param cbPKTInput packet bytes from there to the end of the packet
 * @param pFieldOutput the slot in the record
 * @param cbFieldOutput the slot's width (of one element, for an array)
 * @param dstEndian QIVENPKT_HOST_ENDIAN or QIVENPKT_KEEP_ENDIAN; integers only
 * @param nIndex array element to fill; 0 for everything else
 * @return bytes consumed from the length byte (L + 1), or 0
 */
typedef int (*QIVEN_FIELD_READ)(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                                void *pFieldOutput, unsigned int cbFieldOutput, int dstEndian,
                                unsigned int nIndex);
/**
 * Writes one field (or the fields of one array) from its slot.
 * @param szPKTOutput where the identifier byte goes
 * @param cbPKTOutput bytes of room from there
 * @param PktId the identifier
 * @param pFieldInput the slot in the record
 * @param cbFieldInput the slot's width (of one element, for an array)
 * @param dstEndian QIVENPKT_LITTLE_ENDIAN or QIVENPKT_KEEP_ENDIAN; integers only
 * @param pNASInfo the whole record, for the element count of an array
 * @return bytes written; below 1 on failure
 */
typedef int (*QIVEN_FIELD_WRITE)(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                                 unsigned int PktId, const void *pFieldInput, unsigned int cbFieldInput,
                                 int dstEndian, const nasinfo *pNASInfo);

/** The codec of one field type. */
typedef struct QIVEN_FIELD_PARSER {
    uint32_t ulType; /**< equals the entry's index */
    QIVEN_FIELD_READ pfnRead;
    QIVEN_FIELD_WRITE pfnWrite;
} QIVEN_FIELD_PARSER;

/** Which field holds the element count of an array. */
typedef struct QIVEN_FIELD_ARRAY_MAP {
    uint32_t ulArrayPktId;
    uint32_t ulCountPktId;
} QIVEN_FIELD_ARRAY_MAP;

/**
 * Send request: the fields of one outgoing packet, in order. Zero it, point pnasInfo at a record, then list
 * identifiers with the QIVENSendPktID functions (or fill the list by hand).
 */
typedef struct QIVEN_SEND {
    nasinfo *pnasInfo;                /**< whose values are sent; not owned */
    int32_t nPktID;                   /**< identifiers in use; a writer needs at least one */
    uint32_t rgPktID[QIVEN_SEND_MAX]; /**< entries 0 to nPktID - 1, in packet order */
} QIVEN_SEND;

/** Header of every plain packet: 12 34 56 78 "TAVO". */
QIVEN_API extern const unsigned char stQIVENHeader[8];
QIVEN_API extern const uint32_t QIVENHeaderSize;
/** Header of every sealed packet: 12 34 55 66 "TAVO". */
QIVEN_API extern const unsigned char stQIVENHeaderEncrypted[8];
QIVEN_API extern const uint32_t QIVENHeaderSizeEncrypted;
/** Plain header and one empty field of identifier 0. Readers with the basic-field rule reject it. */
QIVEN_API extern const unsigned char stQIVENBroadCast[10];
QIVEN_API extern const uint32_t QIVENBroadCastSize;
/** Query: ulPktType 1, ulFieldA4 0x00020000. */
QIVEN_API extern const unsigned char stQIVENBroadCastV11[20];
QIVEN_API extern const uint32_t QIVENBroadCastSizeV11;
/** Query: ulPktType 1, ulFieldA4 0x01020000. The host search broadcasts this one. */
QIVEN_API extern const unsigned char stQIVENBroadCastVQX20[20];
QIVEN_API extern const uint32_t QIVENBroadCastSizeVQX20;

/** The field table, sorted by ascending identifier. */
QIVEN_API extern const QIVEN_FIELD_ATTRIB grgfieldAttribs[QIVEN_FIELD_COUNT];
/** The codecs, indexed by field type; FIELD_NONE has none. */
QIVEN_API extern const QIVEN_FIELD_PARSER grgfieldParsers[QIVEN_PARSER_COUNT];
/** The count field of each array, sorted by array identifier. */
QIVEN_API extern const QIVEN_FIELD_ARRAY_MAP grgFieldArrayCountMap[QIVEN_ARRAY_FIELD_COUNT];

/*
 * Field codecs. Each moves one field between a packet buffer and a slot of the record; parameters as for
 * QIVEN_FIELD_READ and QIVEN_FIELD_WRITE. A failed argument check is reported on level 1 with result 0; a
 * value that does not fit is no argument error and has no message. Reentrant.
 */

/**
 * Reads a text into element nIndex (0 for a plain text) of the slot. A text ends early at a NUL inside it.
 * L = 0 leaves the slot unchanged. dstEndian is ignored.
 * @return L + 1; 0 when the value runs past the packet, has no room with its NUL, or on a bad argument
 */
QIVEN_API int QIVENPacketReadString(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                                    void *szFieldOutput, unsigned int cbFieldOutput, int dstEndian,
                                    unsigned int nIndex);
/** QIVENPacketReadString() under a second name. */
QIVEN_API int QIVENPacketReadArray(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                                   void *szFieldOutput, unsigned int cbFieldOutput, int dstEndian,
                                   unsigned int nIndex);
/**
 * Reads an integer. L = 0 leaves the slot unchanged.
 * @param cbFieldOutput 4 or 8
 * @return L + 1; 0 when the value runs past the packet, L is not the width, or on a bad argument
 */
QIVEN_API int QIVENPacketReadInteger(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                                     void *puFieldOutput, unsigned int cbFieldOutput, int dstEndian);
/**
 * Writes a NUL-terminated text of at most 255 characters.
 * @return L + 2; room - (L + 2), a negative number with nothing written, when it does not fit; 0 on a bad
 *         argument
 */
QIVEN_API int QIVENPacketWriteString(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                                     unsigned int PktId, const char *szFieldInput);
/**
 * Writes an integer.
 * @param cbFieldInput 4 or 8
 * @return width + 2; room - (width + 2), a negative number with nothing written, when it does not fit; 0 on a
 *         bad argument, a room of 0 included
 */
QIVEN_API int QIVENPacketWriteInteger(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                                      unsigned int PktId, const void *pulFieldInput,
                                      unsigned int cbFieldInput, int dstEndian);
/**
 * Writes every non-empty element among the first ulArrayCount (at most QIVEN_ARRAY_MAX) as a field of its
 * own.
 * @return bytes written; 0 when there was nothing to write or on a bad argument; -1 when PktId is no array or
 *         an element fills its whole width without a NUL; a negative shortfall when an element does not fit
 *         (elements before it stay in the buffer)
 */
QIVEN_API int QIVENPacketWriteArray(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                                    unsigned int PktId, const void *szFieldInput, unsigned int cbFieldInput,
                                    int dstEndian, const nasinfo *pNASInfo);

/**
 * Builds one plain packet from a send request: the header, then the listed fields in list order. The packet
 * is built aside and copied out only when it is whole, so a failure leaves buffer and size as they were.
 * @param pszPKTOutput address of the caller's malloc(3) buffer; enlarged with realloc(3) to exactly the
 * packet's length when it is too small. The caller frees it.
 * @param pcbPKTOutput address of the buffer's capacity in bytes, updated when the buffer is enlarged
 * @param pqivenSend   the request; 0x2A sends szLongText in chunks of 255 bytes, 0x72 is skipped, identifiers
 *                     are written as often as they are listed
 * @return length of the packet, 8 to 8192; 0 on failure: a bad argument, an unknown identifier, an empty
 * array, a text over 255 bytes, more than 8192 bytes, or no memory (each with a level-1 message). Reentrant.
 */
QIVEN_API int QIVENPacketWrite(const QIVEN_LOG *pLog, unsigned char **pszPKTOutput, int *pcbPKTOutput,
                               const QIVEN_SEND *pqivenSend);

/**
 * Stores a value in the request's record and lists its identifier once.
 * @param pktID   identifier, 1 to 255
 * @param pValue  the value; must hold at least the field's width, because the larger of cbValue and the width
 *                is copied (so a text arrives with its NUL)
 * @param cbValue length of the value; for a text without its NUL, for an array a whole number of elements
 * @return 0; -1 when an argument is bad, the value is larger than the slot, the field has no slot, or the
 * list is full (record and list unchanged). An identifier that is not in the table is reported on standard
 *         output, everything else on level 1.
 */
QIVEN_API int QIVENSendPktIDSet(const QIVEN_LOG *pLog, QIVEN_SEND *pqivenSend, unsigned int pktID,
                                const void *pValue, int cbValue);
/**
 * Appends identifiers as they come: neither duplicates nor table membership are checked, and only the first
 * is range-checked. End the list with 0 (an unsigned int).
 * @return number appended; -1 on a bad argument or when they do not all fit (nothing appended)
 */
QIVEN_API int QIVENSendPktIDAdd(const QIVEN_LOG *pLog, QIVEN_SEND *pqivenSend, unsigned int pktID1, ...);
/**
 * Appends the fields of the service bitmaps: 0xB0 and 0xB1 when blServSupp is 1, then 0xB8 and 0xB9 when
 * blServRun is 1.
 * @return number appended (0, 2 or 4); -1 when a flag is neither 0 nor 1, the request is null, or they do not
 *         all fit (nothing appended)
 */
QIVEN_API int QIVENSendPktIDAddServ(const QIVEN_LOG *pLog, QIVEN_SEND *pqivenSend, int blServSupp,
                                    int blServRun);

/**
 * Reads one received plain packet into a record and decides whether it is acceptable: right header, at most
 * 64 fields, every known value fitting its slot, 0x01 and 0xA4 present, and 0x20, 0x21 and 0x29 too when
 * ulPktType is 3. Unknown fields are skipped. Never reads outside the input. Reentrant.
 * @param szPKTInput     the packet
 * @param cbPKTInput     its length
 * @param pnasinfoOutput cleared, then filled; use it only when the result is above 0
 * @return bytes after the header (at least 1) when accepted; 0 when refused. Refusals that foreign packets
 * cause are reported on level 2 or not at all.
 */
QIVEN_API int QIVENPacketRead(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                              nasinfo *pnasinfoOutput);

/**
 * Builds a packet like QIVENPacketWrite() and seals it for one recipient.
 * @param pszPKTOutput    address of the caller's malloc(3) buffer, enlarged when needed
 * @param pcbPKTOutput    address of its capacity
 * @param pqivenSend      the request; the plain packet inside may have at most 8136 bytes
 * @param szPublicKeyHex  the recipient's public key: exactly 64 hexadecimal digits
 * @return length of the sealed packet (plain length + 56, at most 8192); 0 on failure, where the buffer may
 * hold the plain packet. Reentrant.
 */
QIVEN_API int QIVENPacketWriteEncrypted(const QIVEN_LOG *pLog, char **pszPKTOutput, int *pcbPKTOutput,
                                        const QIVEN_SEND *pqivenSend, const char *szPublicKeyHex);
/**
 * Reads one received packet of either kind: a sealed one is opened with the process key pair first,
 * everything else goes to QIVENPacketRead() unchanged. The secret key is readable for the one opening only.
 * @return as QIVENPacketRead(); 0 when a sealed packet is for somebody else, damaged, longer than 8248 bytes,
 * or this process has no keys (level 2). Uses the process keys: see qiven/keys.h for threads.
 */
QIVEN_API int QIVENPacketReadEncrypted(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                                       nasinfo *pnasinfoOutput);

#ifdef __cplusplus
}
#endif

#endif
