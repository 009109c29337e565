// The case-insensitive ordering of every name table.
#ifndef WSI_LESS_NOCASE_HPP
#define WSI_LESS_NOCASE_HPP

#include <string>

#include <wx/char_casing.hpp>

namespace wsi {

// Strict weak ordering of strings by the English case-insensitive compare. The strings are
// compared as C strings: bytes after an embedded NUL are ignored, so "abc" and "ABC\0x" are one
// name. The compare is the English nocase_compare, inlined.
struct less_nocase_eng {
  bool operator()(const std::string& a, const std::string& b) const {
    return wx::nocase_detail::compare_terminated(a.c_str(), a.size(), b.c_str(), b.size()) == -1;
  }
};

}  // namespace wsi

#endif  // WSI_LESS_NOCASE_HPP
