// Shared by all targets: the entry point, checks of results, and an input that is consumed piece by piece.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData);

namespace fuzz {

inline void Require(bool blHolds, const char *szClaim) {
    if (blHolds) return;
    fprintf(stderr, "does not hold: %s\n", szClaim);
    abort();  // the engine keeps this input
}

inline std::string_view AsText(const uint8_t *pData, size_t cbData) {
    return {reinterpret_cast<const char *>(pData), cbData};
}

inline const unsigned char *AsBytes(std::string_view text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

// Zeros after the end of the input.
class Input {
  public:
    explicit Input(std::string_view text) : m_left(text) {}
    bool AtEnd() const { return m_left.empty(); }
    unsigned int Byte() {
        const std::string_view byte = Take(1);
        return byte.empty() ? 0 : static_cast<unsigned char>(byte[0]);
    }
    unsigned int Word() {
        const unsigned int uHigh = Byte();
        return uHigh << 8 | Byte();
    }
    std::string_view Take(size_t cb) {
        const std::string_view taken = m_left.substr(0, cb);
        m_left.remove_prefix(taken.size());
        return taken;
    }
    std::string_view Rest() const { return m_left; }

  private:
    std::string_view m_left;
};

}  // namespace fuzz
