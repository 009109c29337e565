// Byte-to-digit table of the utility library.
#ifndef WX_CHAR_TO_NUMERIC_HPP
#define WX_CHAR_TO_NUMERIC_HPP

#include <wx/encoding.hpp>
#include <wx/export.hpp>

namespace wx {

template <class Char, encoding::Encoding E>
struct basic_char_to_numeric;

template <>
struct basic_char_to_numeric<char, encoding::host> {
  // Digit value of every byte, indexed by its unsigned value: '0'..'9' give 0..9, 'A'..'Z' and
  // 'a'..'z' give 10..35, every other byte gives -1. A caller that wants decimal digits accepts
  // 0..9 only; one that wants hexadecimal digits accepts 0..15.
  WX_API static const signed char tonum_[256];
};

}  // namespace wx

#endif  // WX_CHAR_TO_NUMERIC_HPP
