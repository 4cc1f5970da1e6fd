// The code of the formatting library, compiled once. As a header-only library it would be compiled again for
// every file, which takes longer than the rest of the command; as a shared library it would be loaded, with
// the C++ runtime, in every run.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

// Declared in its headers, and defined here.
template auto dragonbox::to_decimal(float x) noexcept -> dragonbox::decimal_fp<float>;
template auto dragonbox::to_decimal(double x) noexcept -> dragonbox::decimal_fp<double>;
template locale_ref::locale_ref(const std::locale &loc);
template auto locale_ref::get<std::locale>() const -> std::locale;
template auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template auto decimal_point_impl(locale_ref) -> char;
template void vformat_to<char>(buffer<char> &, string_view, format_args, locale_ref);

}  // namespace detail
FMT_END_NAMESPACE
