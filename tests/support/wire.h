// Packets as byte strings, and memory that ends where they end.
#pragma once

#include <endian.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

inline const std::string kPlainHeader = "\x12\x34\x56\x78TAVO", kSealedHeader = "\x12\x34\x55\x66TAVO";

inline std::string Field(int id, const std::string &value) {
    return std::string{static_cast<char>(id), static_cast<char>(value.size())} + value;
}
inline std::string Number(int id, uint32_t ulValue) {
    const uint32_t ulWire = htole32(ulValue);
    return Field(id, {reinterpret_cast<const char *>(&ulWire), sizeof ulWire});
}
// Header and the two fields that every packet must have.
inline std::string Basic(uint32_t ulPktType = 2) {
    return kPlainHeader + Number(0x01, ulPktType) + Number(0xA4, 9);
}

// A copy of some bytes that ends at the end of a page; access to the next page causes SIGSEGV.
class AtPageEnd {
  public:
    explicit AtPageEnd(const std::string &bytes) {
        m_p = static_cast<unsigned char *>(
            mmap(nullptr, 2 * kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (m_p == MAP_FAILED || mprotect(m_p + kSize, kSize, PROT_NONE) != 0) abort();
        m_pStart = m_p + kSize - bytes.size();
        if (!bytes.empty()) memcpy(m_pStart, bytes.data(), bytes.size());
    }
    ~AtPageEnd() { munmap(m_p, 2 * kSize); }
    AtPageEnd(const AtPageEnd &) = delete;
    AtPageEnd &operator=(const AtPageEnd &) = delete;
    unsigned char *Get() const { return m_pStart; }

  private:
    static constexpr size_t kSize = size_t{64} * 1024;
    unsigned char *m_p, *m_pStart;
};
