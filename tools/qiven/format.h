// The formatting library. What it leaves to each file that includes its header is compiled once
// (format_library.cpp).
#pragma once

#include <fmt/format.h>

#ifndef FMT_HEADER_ONLY
extern template void fmt::detail::vformat_to<char>(buffer<char> &, string_view, format_args, locale_ref);
#endif
