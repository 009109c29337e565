// Locale-free case folding and the case-insensitive three-way compare.
#ifndef WX_CHAR_CASING_HPP
#define WX_CHAR_CASING_HPP

#include <wx/encoding.hpp>
#include <wx/export.hpp>

namespace wx {

template <class Char, language::Language L>
struct char_casing;

// English casing of bytes. The table lives in the utility library; the compares are compiled
// into libqvwsi.
template <>
struct char_casing<char, language::english> {
  // Upper-case form of every byte, indexed by its unsigned value: 'a'..'z' map to 'A'..'Z',
  // every other byte maps to itself.
  WX_API static const char ascii_toupper_[256];

  // Three-way compare of two NUL-terminated texts ignoring ASCII case: 0 when equal, -1 when
  // `a` orders first, 1 when `b` orders first. Bytes that still differ after folding compare as
  // signed 8-bit values, so bytes 0x80..0xFF order before every ASCII byte; the ordered name
  // tables sort by this and existing hosts depend on it. Neither pointer may be null.
  WX_API static int nocase_compare(const char* a, const char* b);

  // The same over at most `n` bytes of `a`: a prefix test of `a`'s first `n` bytes against `b`.
  // Returns 0 without reading either text when `n` is 0.
  WX_API static int nocase_compare(const char* a, const char* b, unsigned long n);
};

}  // namespace wx

#endif  // WX_CHAR_CASING_HPP
