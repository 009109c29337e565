// Locale-free case folding and the case-insensitive three-way compare.
#ifndef WX_CHAR_CASING_HPP
#define WX_CHAR_CASING_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

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

// The compare's steps, inline so that the name tables' ordering costs no call. Both the exported
// compares and wsi::less_nocase_eng are built on them, so every caller gets the same order bit for
// bit.
namespace nocase_detail {

// Returned by compare_position while the two texts still match.
const int same_position = 2;

// Compares the bytes `x` of a and `y` of b at one position: 0 when both texts end here, -1 when
// only a ends, 1 when only b ends, same_position when the bytes match ignoring case, otherwise
// the order of the upper-case forms read as signed bytes. The sign is deliberate: bytes
// 0x80..0xFF order before every ASCII byte, and the name tables of existing hosts sort by it.
inline int compare_position(unsigned char x, unsigned char y) {
  if (x == 0) return y == 0 ? 0 : -1;
  if (y == 0) return 1;
  if (x == y) return same_position;
  typedef char_casing<char, language::english> english;
  const signed char ux = static_cast<signed char>(english::ascii_toupper_[x]);
  const signed char uy = static_cast<signed char>(english::ascii_toupper_[y]);
  if (ux == uy) return same_position;
  return uy < ux ? 1 : -1;
}

// Compares NUL-terminated texts byte by byte from `a` and `b` on, as nocase_compare does.
inline int compare_from(const unsigned char* a, const unsigned char* b) {
  for (;; ++a, ++b) {
    const int result = compare_position(*a, *b);
    if (result != same_position) return result;
  }
}

// Whether one of the eight bytes of `w` is zero.
inline bool has_zero_byte(std::uint64_t w) {
  return ((w - 0x0101010101010101ULL) & ~w & 0x8080808080808080ULL) != 0;
}

// nocase_compare of `a` and `b`, where `na` and `nb` bytes precede a NUL that ends each buffer
// (as std::string::c_str() gives; an earlier NUL still ends the text). Equal bytes are skipped
// eight at a time while no NUL is among them; from the first block that differs, the bytes are
// compared one by one, so the result is that of the byte-wise compare.
inline int compare_terminated(const char* a, std::size_t na, const char* b, std::size_t nb) {
  const std::size_t n = na < nb ? na : nb;
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    std::uint64_t x, y;
    std::memcpy(&x, a + i, 8);
    std::memcpy(&y, b + i, 8);
    if (x != y || has_zero_byte(x)) break;
  }
  return compare_from(reinterpret_cast<const unsigned char*>(a + i),
                      reinterpret_cast<const unsigned char*>(b + i));
}

}  // namespace nocase_detail

}  // namespace wx

#endif  // WX_CHAR_CASING_HPP
