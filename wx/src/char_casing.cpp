// The English case-insensitive three-way compare of texts.
#include <wx/char_casing.hpp>

namespace wx {

int char_casing<char, language::english>::nocase_compare(const char* a, const char* b) {
  return nocase_detail::compare_from(reinterpret_cast<const unsigned char*>(a),
                                     reinterpret_cast<const unsigned char*>(b));
}

int char_casing<char, language::english>::nocase_compare(const char* a, const char* b,
                                                         unsigned long n) {
  const unsigned char* x = reinterpret_cast<const unsigned char*>(a);
  const unsigned char* y = reinterpret_cast<const unsigned char*>(b);
  for (; n != 0; --n, ++x, ++y) {
    const int result = nocase_detail::compare_position(*x, *y);
    if (result != nocase_detail::same_position) return result;
  }
  return 0;
}

}  // namespace wx
