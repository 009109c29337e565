// The English case-insensitive three-way compare of texts.
#include <wx/char_casing.hpp>

namespace wx {
namespace {

typedef char_casing<char, language::english> english;

// Returned by comparePosition while the two texts still match.
const int kSamePosition = 2;

// Compares the bytes `x` of a and `y` of b at one position: 0 when both texts end here, -1 when
// only a ends, 1 when only b ends, kSamePosition when the bytes match ignoring case, otherwise
// the order of the upper-case forms read as signed bytes. The sign is deliberate: bytes
// 0x80..0xFF order before every ASCII byte, and the name tables of existing hosts sort by it.
int comparePosition(unsigned char x, unsigned char y) {
  if (x == 0) return y == 0 ? 0 : -1;
  if (y == 0) return 1;
  if (x == y) return kSamePosition;
  const signed char ux = static_cast<signed char>(english::ascii_toupper_[x]);
  const signed char uy = static_cast<signed char>(english::ascii_toupper_[y]);
  if (ux == uy) return kSamePosition;
  return uy < ux ? 1 : -1;
}

}  // namespace

int char_casing<char, language::english>::nocase_compare(const char* a, const char* b) {
  const unsigned char* x = reinterpret_cast<const unsigned char*>(a);
  const unsigned char* y = reinterpret_cast<const unsigned char*>(b);
  for (;; ++x, ++y) {
    const int result = comparePosition(*x, *y);
    if (result != kSamePosition) return result;
  }
}

int char_casing<char, language::english>::nocase_compare(const char* a, const char* b,
                                                         unsigned long n) {
  const unsigned char* x = reinterpret_cast<const unsigned char*>(a);
  const unsigned char* y = reinterpret_cast<const unsigned char*>(b);
  for (; n != 0; --n, ++x, ++y) {
    const int result = comparePosition(*x, *y);
    if (result != kSamePosition) return result;
  }
  return 0;
}

}  // namespace wx
