// A second reader of plain packets, written from the wire format alone: slow, plain, with its own table.
#pragma once

#include <qiven/nasinfo.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <type_traits>

#include "support/log_capture.h"
#include "support/wire.h"

struct SlowField {
    int id;
    char cKind;  // i integer, s text, a array
    size_t cbOffset, cbWidth;
};

template <class T>
inline constexpr char kKindOf = std::is_integral_v<T> ? 'i'
                                : std::rank_v<T> == 2 ? 'a'
                                                      : 's';
// clang-format off
#define F(id, name, width) SlowField{id, kKindOf<decltype(nasinfo::name)>, offsetof(nasinfo, name), width}
inline const SlowField kSlowFields[] = {
    F(0x01, ulPktType, 4), F(0x10, ulField10, 4), F(0x11, szHostName, 36), F(0x12, ulIP, 4),
    F(0x13, ulAddr13, 4), F(0x14, ulAddr14, 4), F(0x15, ulAddr15, 4), F(0x18, ulField18, 4),
    F(0x19, szHostIdent, 36), F(0x1A, szLongText, 1540), F(0x1E, ulAddr1E, 4), F(0x1F, ulField1F, 4),
    F(0x20, ulField10, 4), F(0x21, szHostName, 36), F(0x22, ulIP, 4), F(0x23, ulAddr13, 4),
    F(0x24, ulAddr14, 4), F(0x25, ulAddr15, 4), F(0x29, szHostIdent, 36), F(0x2A, szLongText, 1540),
    F(0x48, ulModel, 4), F(0x49, ulField49, 4), F(0x4A, szField4A, 496), F(0x4D, ulField4D, 4),
    F(0x50, szField50, 20), F(0x51, szField51, 20), F(0x52, szField52, 260), F(0x53, szField53, 260),
    F(0x54, ulField54, 4), F(0x55, ulField55, 4), F(0x56, szField56, 128), F(0x57, szField57, 128),
    F(0x58, szField58, 128), F(0x59, szField59, 128), F(0x5A, szField5A, 128), F(0x5B, szField5B, 128),
    F(0x5C, szField5C, 4), F(0x5D, szField5D, 4), F(0x60, ulField60, 4), F(0x70, szField70, 68),
    F(0x71, ulField71, 4), F(0x73, szField73, 12), F(0x75, ulField75, 4), F(0x76, ulField76, 4),
    F(0x77, szField77, 8), F(0x78, szField78, 48), F(0x79, ulField79, 4), F(0x7B, ulField7B, 4),
    F(0x7C, szMacAddr, 36), F(0x7D, ulField7D, 4), F(0x7E, szField7E, 8), F(0x7F, szField7F, 48),
    F(0x80, ulField80, 4), F(0x90, ulField90, 4), F(0xA0, ulFieldA0, 4), F(0xA2, szFieldA2, 36),
    F(0xA3, ulFieldA3, 4), F(0xA4, ulFieldA4, 4), F(0xA6, ulFieldA6, 4), F(0xA7, ulFieldA7, 4),
    F(0xB0, ullServSupp0, 8), F(0xB1, ullServSupp1, 8), F(0xB8, ullServRun0, 8), F(0xB9, ullServRun1, 8),
    F(0xBA, ulFieldBA, 4), F(0xBB, ulArrayCount, 4), F(0xBC, rgszFieldBC, 64), F(0xBD, rgszFieldBD, 64),
    F(0xBE, rgszFieldBE, 64), F(0xBF, rgszFieldBF, 64), F(0xC0, szFieldC0, 32), F(0xC1, szFieldC1, 8),
    F(0xC2, ulFieldC2, 4), F(0xC3, ulFieldC3, 4), F(0xC4, szPubKeyHex, 65), F(0xC5, ulProcessID, 4),
    F(0xC6, ulPeerProcessID, 4),
};
// clang-format on
#undef F

// Converts an integer of the record to the wire and back: little-endian, except
// addresses, whose bytes are copied.
inline std::string SlowSwap(const SlowField &field, std::string value) {
    constexpr std::string_view kAddresses = "\x12\x13\x14\x15\x1E\x22\x23\x24\x25";
    const bool blAddress = kAddresses.find(static_cast<char>(field.id)) != std::string_view::npos;
    if (__BYTE_ORDER == __BIG_ENDIAN && !blAddress) std::reverse(value.begin(), value.end());
    return value;
}

inline unsigned SlowBasicMask(int id) {
    return id == 0x01 ? 1 : id == 0xA4 ? 2 : id == 0x20 ? 4 : id == 0x21 ? 8 : id == 0x29 ? 16 : 0;
}

class SlowReader {
  public:
    nasinfo record;
    std::vector<std::string> messages;
    int iResult;

    explicit SlowReader(const std::string &packet) {
        memset(static_cast<void *>(&record), 0, sizeof record);
        iResult = Read(packet);
    }

  private:
    int Read(const std::string &packet) {
        if (packet.size() <= 8 || packet.substr(0, 8) != kPlainHeader) return 0;
        const std::string fields = packet.substr(8);
        size_t at = 0;
        for (int nFields = 1; at < fields.size(); ++nFields) {
            const size_t cbUsed = ReadField(fields.substr(at), at);
            if (cbUsed == 0) return 0;
            at += cbUsed;
            if (nFields == 65) return Refuse("2|packet:# Maybe some virus try to hack me\n");
        }
        if (std::string(record.szFieldC0).empty()) strcpy(record.szFieldC0, record.szField73);
        if ((m_mask & 3) != 3) return Refuse("2|packet:# Basic is not satifsfied\n");
        if (record.ulPktType == 3 && m_mask != 31) {
            return Refuse("1|packet:# not enough fields for netsetting 0x%X\n", static_cast<int>(m_mask));
        }
        return static_cast<int>(fields.size());
    }

    // Bytes that the first field takes, 0 when the packet is refused.
    size_t ReadField(const std::string &rest, size_t at) {
        const int id = static_cast<unsigned char>(rest.at(0));
        const bool blLength = rest.size() > 1;
        const size_t cbValue = blLength ? static_cast<unsigned char>(rest.at(1)) : 0;
        const bool blFits = blLength && 2 + cbValue <= rest.size();
        const SlowField *pField = nullptr;
        for (const SlowField &field : kSlowFields) {
            if (field.id == id) pField = &field;
        }
        if (pField == nullptr && id != 0x72) {
            if (id != 0xA1) Refuse("2|packet:# unknown id: [0x%02X] at offset (%zu)\n", id, at);
            return !blLength ? 0 : blFits ? 2 + cbValue : 2;
        }
        if (pField != nullptr) {
            m_element = pField->cKind == 'a' && m_run == id ? m_element + 1 : 0;
            m_run = pField->cKind == 'a' ? id : 0;
            if (m_element > 31) return 0;
        }
        if (!blLength) messages.push_back(Invalid("packet", "0 < cbPKTInput"));
        if (!blFits || !Store(pField, rest.substr(2, cbValue))) return 0;
        m_mask |= SlowBasicMask(id);
        return 2 + cbValue;
    }

    bool Store(const SlowField *pField, const std::string &value) {
        if (value.empty()) return true;
        if (pField == nullptr) {
            if (strlen(record.szLongText) + value.size() >= 1536) return false;
            strcat(record.szLongText, value.c_str());
            return true;
        }
        char *pSlot = reinterpret_cast<char *>(&record) + pField->cbOffset + m_element * pField->cbWidth;
        const bool blInteger = pField->cKind == 'i';
        if (blInteger ? value.size() != pField->cbWidth : value.size() >= pField->cbWidth) return false;
        if (blInteger) memcpy(pSlot, SlowSwap(*pField, value).data(), value.size());
        if (!blInteger) strcpy(pSlot, value.c_str());
        return true;
    }

    int Refuse(const char *szFormat, int nValue = 0, size_t at = 0) {
        char sz[100];
        snprintf(sz, sizeof sz, szFormat, nValue, at);
        messages.push_back(sz);
        return 0;
    }

    unsigned m_mask = 0;
    int m_run = 0;
    size_t m_element = 0;
};
