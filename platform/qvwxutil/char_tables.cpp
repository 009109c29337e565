// The byte tables of the utility library: English upper-casing and digit values.
#include <wx/char_casing.hpp>
#include <wx/char_to_numeric.hpp>

namespace wx {
namespace {

// Upper-case form of byte `c`: 'a'..'z' become 'A'..'Z', every other byte stays itself.
constexpr char upperOf(int c) {
  return static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
}

// Digit value of byte `c` in any base up to 36: '0'..'9' give 0..9, letters of either case give
// 10..35, every other byte gives -1.
constexpr signed char digitOf(int c) {
  return static_cast<signed char>(c >= '0' && c <= '9'   ? c - '0'
                                  : c >= 'A' && c <= 'Z' ? c - 'A' + 10
                                  : c >= 'a' && c <= 'z' ? c - 'a' + 10
                                                         : -1);
}

}  // namespace

// The 256 entries f(0) .. f(255), as a brace-initialiser list of constants.
#define WX_ROW16(f, r)                                                                      \
  f(r + 0), f(r + 1), f(r + 2), f(r + 3), f(r + 4), f(r + 5), f(r + 6), f(r + 7), f(r + 8), \
      f(r + 9), f(r + 10), f(r + 11), f(r + 12), f(r + 13), f(r + 14), f(r + 15)
#define WX_TABLE256(f)                                                                          \
  WX_ROW16(f, 0), WX_ROW16(f, 16), WX_ROW16(f, 32), WX_ROW16(f, 48), WX_ROW16(f, 64),           \
      WX_ROW16(f, 80), WX_ROW16(f, 96), WX_ROW16(f, 112), WX_ROW16(f, 128), WX_ROW16(f, 144),   \
      WX_ROW16(f, 160), WX_ROW16(f, 176), WX_ROW16(f, 192), WX_ROW16(f, 208), WX_ROW16(f, 224), \
      WX_ROW16(f, 240)

const char char_casing<char, language::english>::ascii_toupper_[256] = {WX_TABLE256(upperOf)};

const signed char basic_char_to_numeric<char, encoding::host>::tonum_[256] = {WX_TABLE256(digitOf)};

#undef WX_TABLE256
#undef WX_ROW16

}  // namespace wx
