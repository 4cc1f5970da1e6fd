// The bytes of a record including padding, to check that nothing else in it has changed.
#pragma once

#include <string_view>

template <class T>
std::string_view BytesOf(const T &record) {
    // NOLINTNEXTLINE(bugprone-*): reading the representation is intended.
    return {reinterpret_cast<const char *>(&record), sizeof record};
}
