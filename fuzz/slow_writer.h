// A second writer of plain packets, written from the wire format alone.
#pragma once

#include <optional>

#include "support/slow_reader.h"

class SlowWriter {
  public:
    std::string packet = kPlainHeader;  // empty after a failure
    std::vector<std::string> messages;

    SlowWriter(const nasinfo &record, const std::vector<unsigned int> &ids) : m_record(record) {
        for (const unsigned int id : ids) {
            if (id == 0x72) continue;
            if (id == 0x2A ? LongText() : Listed(id)) continue;
            packet.clear();
            return;
        }
    }

  private:
    bool Listed(unsigned int id) {
        const SlowField *pField = nullptr;
        for (const SlowField &field : kSlowFields) {
            if (field.id == static_cast<int>(id)) pField = &field;
        }
        if (pField == nullptr && id != 0x4B && id != 0x4C) Say("unknown PKT-ID: [0x%X]\n", id);
        if (pField != nullptr && Value(*pField)) return true;
        Say("fail to write [0x%X]!\n", id);
        return false;
    }

    bool Value(const SlowField &field) {
        const char *pSlot = reinterpret_cast<const char *>(&m_record) + field.cbOffset;
        if (field.cKind == 's') return Text(field.id, pSlot, field.cbWidth);
        if (field.cKind == 'a') return Elements(field, pSlot);
        if (packet.size() == kMax) messages.push_back(Invalid("packet", "0 < cbPKTOutput"));
        return Append(field.id, SlowSwap(field, {pSlot, field.cbWidth}));
    }

    bool Text(int id, const char *pSlot, size_t cbSlot) {
        const std::optional<std::string> text = TextOf(pSlot, cbSlot);
        const size_t cbText = text ? text->size() : cbSlot;
        if (cbText > 255) messages.push_back(Invalid("packet", "255 >= cbFieldInput"));
        return text && cbText <= 255 && Append(id, *text);
    }

    bool Elements(const SlowField &field, const char *pSlot) {
        size_t nWritten = 0;
        for (size_t i = 0; i < 32 && i < m_record.ulArrayCount; ++i) {
            const std::optional<std::string> text = TextOf(pSlot + i * field.cbWidth, field.cbWidth);
            if (!text) return false;
            if (text->empty()) continue;
            if (!Append(field.id, *text)) return false;
            ++nWritten;
        }
        return nWritten > 0;
    }

    bool LongText() {
        std::string left(m_record.szLongText, strnlen(m_record.szLongText, sizeof m_record.szLongText));
        int id = 0x2A;
        do {
            const std::string chunk = left.substr(0, 255);
            left.erase(0, chunk.size());
            if (!Append(id, chunk)) {
                messages.emplace_back("1|packet:# fail to write!\n");
                return false;
            }
            id = 0x72;
        } while (!left.empty());
        return true;
    }

    bool Append(int id, const std::string &value) {
        if (packet.size() + 2 + value.size() > kMax) return false;
        packet += Field(id, value);
        return true;
    }

    // Nothing when the slot has no NUL.
    static std::optional<std::string> TextOf(const char *pSlot, size_t cbSlot) {
        const std::string all(pSlot, cbSlot);
        const size_t cb = all.find('\0');
        if (cb == std::string::npos) return std::nullopt;
        return all.substr(0, cb);
    }

    void Say(const char *szFormat, unsigned int id) {
        char sz[100];
        snprintf(sz, sizeof sz, szFormat, id);
        messages.push_back(std::string("1|packet:# ") + sz);
    }

    static constexpr size_t kMax = 8192;
    const nasinfo &m_record;
};
