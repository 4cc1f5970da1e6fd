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
/** Bytes of a long text that a reader accepts, its NUL included. */
#define QIVEN_LONG_TEXT_SIZE 1536
/** A sealed box is this much longer than its content. */
#define QIVEN_SEAL_OVERHEAD 48
/** Largest plain packet that can be sealed: a header and the overhead less than QIVEN_PACKET_MAX. */
#define QIVEN_SEALED_PLAIN_MAX 8136
/** Capacity of the identifier list of a send request; the listing functions refuse to append beyond it. */
#define QIVEN_SEND_MAX 256

/** Identifiers are greater than PKT_ID_MIN and smaller than PKT_ID_MAX. */
#define PKT_ID_MIN 0
#define PKT_ID_MAX 256
/** The width of an array element is smaller than this. */
#define PKT_MAX_STRING_LEN 255

#define QIVENPKT_LITTLE_ENDIAN 0 /**< integer travels little-endian: table value and writer mode */
#define QIVENPKT_HOST_ENDIAN 1   /**< reader mode: convert the little-endian wire value to host order */
#define QIVENPKT_KEEP_ENDIAN 2   /**< integer bytes copied as they are: table value, both modes */

/** @name Identifiers with a meaning of their own (the table has all of them) */
/** @{ */
#define PKT_ID_PKT_TYPE 0x01        /**< ulPktType, must be in every packet */
#define PKT_ID_HOST_NAME 0x11       /**< szHostName */
#define PKT_ID_IP 0x12              /**< ulIP */
#define PKT_ID_ADDR_13 0x13         /**< ulAddr13 */
#define PKT_ID_HOST_IDENT 0x19      /**< szHostIdent */
#define PKT_ID_LONG_TEXT 0x2A       /**< szLongText, first chunk */
#define PKT_ID_MODEL 0x48           /**< ulModel */
#define PKT_ID_FIELD_49 0x49        /**< ulField49 */
#define PKT_ID_CONTINUATION 0x72    /**< szLongText, further chunks */
#define PKT_ID_MAC_ADDR 0x7C        /**< szMacAddr */
#define PKT_ID_FIELD_A4 0xA4        /**< ulFieldA4, must be in every packet */
#define PKT_ID_SERV_SUPP0 0xB0      /**< ullServSupp0 */
#define PKT_ID_SERV_SUPP1 0xB1      /**< ullServSupp1 */
#define PKT_ID_SERV_RUN0 0xB8       /**< ullServRun0 */
#define PKT_ID_SERV_RUN1 0xB9       /**< ullServRun1 */
#define PKT_ID_ARRAY_COUNT 0xBB     /**< ulArrayCount */
#define PKT_ID_PUB_KEY_HEX 0xC4     /**< szPubKeyHex */
#define PKT_ID_PROCESS_ID 0xC5      /**< ulProcessID */
#define PKT_ID_PEER_PROCESS_ID 0xC6 /**< ulPeerProcessID */
/** @} */

/** Bits of ulBasicMask that every packet must have, and those that a packet of type 3 must have as well. */
#define QIVEN_BASIC_MASK 0x03
#define QIVEN_NETSETTING_MASK 0x1C

/** ulFieldA4 in stQIVENBroadCastV11, and in stQIVENBroadCastVQX20. */
#define QIVEN_FIELD_A4_V11 0x00020000
#define QIVEN_FIELD_A4_VQX20 0x01020000

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
    uint32_t ulBasicMask; /**< bit that the reader records if the field is present, or 0 */
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
 * @param cbPKTOutput bytes of space from there
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
/** Query: ulPktType 1, ulFieldA4 QIVEN_FIELD_A4_V11. */
QIVEN_API extern const unsigned char stQIVENBroadCastV11[20];
QIVEN_API extern const uint32_t QIVENBroadCastSizeV11;
/** Query: ulPktType 1, ulFieldA4 QIVEN_FIELD_A4_VQX20. The host search broadcasts this one. */
QIVEN_API extern const unsigned char stQIVENBroadCastVQX20[20];
QIVEN_API extern const uint32_t QIVENBroadCastSizeVQX20;

/** The field table, sorted by ascending identifier. */
QIVEN_API extern const QIVEN_FIELD_ATTRIB grgfieldAttribs[QIVEN_FIELD_COUNT];
/**
 * The codecs, indexed by field type; FIELD_NONE has none. The string writer of this table is
 * QIVENPacketWriteString() bounded by the slot: a text without a NUL in its cbFieldInput bytes gives -1.
 */
QIVEN_API extern const QIVEN_FIELD_PARSER grgfieldParsers[QIVEN_PARSER_COUNT];
/** The count field of each array, sorted by array identifier. */
QIVEN_API extern const QIVEN_FIELD_ARRAY_MAP grgFieldArrayCountMap[QIVEN_ARRAY_FIELD_COUNT];

/*
 * Field codecs. Each moves one field between a packet buffer and a slot of the record; parameters as for
 * QIVEN_FIELD_READ and QIVEN_FIELD_WRITE. A failed argument check is reported on level 1 with result 0; a
 * value that does not fit is not an argument error and has no message. Reentrant.
 */

/**
 * Reads a text into element nIndex (0 for a plain text) of the slot. A text ends early at a NUL inside it.
 * L = 0 leaves the slot unchanged. dstEndian is ignored.
 * @return L + 1; 0 if the value runs past the packet, does not fit the slot with its NUL, or on a bad
 * argument
 */
QIVEN_API int QIVENPacketReadString(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                                    void *szFieldOutput, unsigned int cbFieldOutput, int dstEndian,
                                    unsigned int nIndex);
/** The same as QIVENPacketReadString(). */
QIVEN_API int QIVENPacketReadArray(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                                   void *szFieldOutput, unsigned int cbFieldOutput, int dstEndian,
                                   unsigned int nIndex);
/**
 * Reads an integer. L = 0 leaves the slot unchanged.
 * @param cbFieldOutput 4 or 8
 * @return L + 1; 0 if the value runs past the packet, L is not the width, or on a bad argument
 */
QIVEN_API int QIVENPacketReadInteger(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                                     void *puFieldOutput, unsigned int cbFieldOutput, int dstEndian);
/**
 * Writes a NUL-terminated text of at most 255 characters.
 * @return L + 2; space - (L + 2), a negative number with nothing written, if it does not fit; 0 on a bad
 *         argument
 */
QIVEN_API int QIVENPacketWriteString(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                                     unsigned int PktId, const char *szFieldInput);
/**
 * Writes an integer.
 * @param cbFieldInput 4 or 8
 * @return width + 2; space - (width + 2), a negative number with nothing written, if it does not fit; 0 on a
 *         bad argument, a space of 0 included
 */
QIVEN_API int QIVENPacketWriteInteger(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                                      unsigned int PktId, const void *pulFieldInput,
                                      unsigned int cbFieldInput, int dstEndian);
/**
 * Writes every non-empty element among the first ulArrayCount (at most QIVEN_ARRAY_MAX) as a field of its
 * own.
 * @return bytes written; 0 if there was nothing to write or on a bad argument; -1 if PktId is not an array or
 *         an element fills its whole width without a NUL; a negative shortfall if an element does not fit
 *         (elements before it stay in the buffer)
 */
QIVEN_API int QIVENPacketWriteArray(const QIVEN_LOG *pLog, unsigned char *szPKTOutput, int cbPKTOutput,
                                    unsigned int PktId, const void *szFieldInput, unsigned int cbFieldInput,
                                    int dstEndian, const nasinfo *pNASInfo);

/**
 * Builds one plain packet from a send request: the header, then the listed fields in list order. The packet
 * is built in a private buffer and copied out if it is complete, so a failure leaves buffer and size
 * unchanged.
 * @param pszPKTOutput address of the caller's malloc(3) buffer; enlarged with realloc(3) to exactly the
 * packet's length if it is too small. The caller frees it.
 * @param pcbPKTOutput address of the buffer's capacity in bytes, updated if the buffer is enlarged
 * @param pqivenSend   the request; 0x2A sends szLongText in chunks of 255 bytes, 0x72 is skipped, identifiers
 *                     are written as often as they are listed
 * A szLongText of 1536 to 1539 bytes is written under 0x2A unchanged, although every reader refuses it.
 * @return length of the packet, 8 to 8192; 0 on failure (each with a level-1 message): a bad argument; more
 *         than QIVEN_SEND_MAX identifiers; an identifier that is unknown or has no slot (0x4B, 0x4C); a text
 *         over 255 bytes, other than szLongText under 0x2A, or one that has no NUL in its slot; an array with
 *         nothing to write, or with an element that has no NUL; more than 8192 bytes; no memory. Reentrant.
 */
QIVEN_API int QIVENPacketWrite(const QIVEN_LOG *pLog, unsigned char **pszPKTOutput, int *pcbPKTOutput,
                               const QIVEN_SEND *pqivenSend);

/**
 * Stores a value in the request's record and lists its identifier once.
 * @param pktID   identifier, 1 to 255
 * @param pValue  the value; must hold at least the field's width, because the larger of cbValue and the width
 *                is copied (so a text arrives with its NUL)
 * @param cbValue length of the value; for a text without its NUL, for an array a whole number of elements
 * @return 0; -1 if an argument is bad, the value is larger than the slot, the field has no slot, or the
 * list is full (record and list unchanged). An identifier that is not in the table is reported on standard
 *         output, everything else on level 1.
 */
QIVEN_API int QIVENSendPktIDSet(const QIVEN_LOG *pLog, QIVEN_SEND *pqivenSend, unsigned int pktID,
                                const void *pValue, int cbValue);
/**
 * Appends identifiers unchecked: duplicates and unknown identifiers are allowed, and only the first
 * identifier is range-checked. End the list with 0 (an unsigned int).
 * @return number appended; -1 on a bad argument or if they do not all fit (nothing appended)
 */
QIVEN_API int QIVENSendPktIDAdd(const QIVEN_LOG *pLog, QIVEN_SEND *pqivenSend, unsigned int pktID1, ...);
/**
 * Appends the fields of the service bitmaps: 0xB0 and 0xB1 if blServSupp is 1, then 0xB8 and 0xB9 if
 * blServRun is 1.
 * @return number appended (0, 2 or 4); -1 if a flag is neither 0 nor 1, the request is null, or they do not
 *         all fit (nothing appended)
 */
QIVEN_API int QIVENSendPktIDAddServ(const QIVEN_LOG *pLog, QIVEN_SEND *pqivenSend, int blServSupp,
                                    int blServRun);

/**
 * Reads one received plain packet into a record and decides whether it is acceptable: right header, at most
 * 64 fields, every known value fitting its slot, 0x01 and 0xA4 present, and 0x20, 0x21 and 0x29 too if
 * ulPktType is 3. Unknown fields are skipped. Never reads outside the input. Reentrant.
 * @param szPKTInput     the packet
 * @param cbPKTInput     its length
 * @param pnasinfoOutput cleared, then filled; use it only if the result is above 0
 * @return bytes after the header (at least 1) if accepted; 0 if refused. A refusal is reported on level
 *         2 or not at all, with two exceptions that a stranger's packet can cause on level 1: a known field
 *         that ends with its identifier, and a packet of type 3 that lacks one of its fields.
 */
QIVEN_API int QIVENPacketRead(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                              nasinfo *pnasinfoOutput);

/**
 * Builds a packet like QIVENPacketWrite() and seals it for one recipient.
 * @param pszPKTOutput    address of the caller's malloc(3) buffer, enlarged if needed
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
 * @return as QIVENPacketRead(); 0 if a sealed packet is for another process, damaged, longer than 8248 bytes,
 * or this process has no keys (level 2). Uses the process keys: see qiven/keys.h for threads.
 */
QIVEN_API int QIVENPacketReadEncrypted(const QIVEN_LOG *pLog, const unsigned char *szPKTInput, int cbPKTInput,
                                       nasinfo *pnasinfoOutput);

#ifdef __cplusplus
}
#endif

#endif
