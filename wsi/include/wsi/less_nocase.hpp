// The case-insensitive ordering of every name table.
#ifndef WSI_LESS_NOCASE_HPP
#define WSI_LESS_NOCASE_HPP

#include <string>

#include <wx/char_casing.hpp>

namespace wsi {

// Strict weak ordering of strings by the English case-insensitive compare. The strings are
// compared as C strings: bytes after an embedded NUL are ignored, so "abc" and "ABC\0x" are one
// name.
struct less_nocase_eng {
  bool operator()(const std::string& a, const std::string& b) const {
    return wx::char_casing<char, wx::language::english>::nocase_compare(a.c_str(), b.c_str()) == -1;
  }
};

}  // namespace wsi

#endif  // WSI_LESS_NOCASE_HPP
