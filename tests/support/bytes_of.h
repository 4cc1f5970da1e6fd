// A record's bytes, padding and all, for tests that nothing else in it changed.
#pragma once

#include <string_view>

template <class T>
std::string_view BytesOf(const T &record) {
    // NOLINTNEXTLINE(bugprone-*): looking at the representation is the purpose.
    return {reinterpret_cast<const char *>(&record), sizeof record};
}
