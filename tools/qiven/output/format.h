// The formatting library. The function that its header would compile into each file is in format_library.cpp.
#pragma once

#include <fmt/format.h>

#ifndef FMT_HEADER_ONLY
extern template void fmt::detail::vformat_to<char>(buffer<char> &, string_view, format_args, locale_ref);
#endif
