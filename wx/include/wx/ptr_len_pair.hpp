// Views of a text as a pointer and a length, narrowed once by a mapping policy.
#ifndef WX_PTR_LEN_PAIR_HPP
#define WX_PTR_LEN_PAIR_HPP

#include <cctype>
#include <string>
#include <type_traits>

namespace wx {

// Narrows [begin, end) by the bytes at both ends for which the C library's isspace is true in
// the current C locale. The end is narrowed first, so a text of white space alone ends up as the
// empty range at its start: a caller that keeps the leading white space of a value still drops
// all of it there.
struct space_stripper {
  void operator()(const char*& begin, const char*& end) const {
    while (end != begin && std::isspace(static_cast<unsigned char>(end[-1])))
      --end;
    while (begin != end && std::isspace(static_cast<unsigned char>(*begin)))
      ++begin;
  }
};

// A view of `len` characters at `ptr`: not owned, not terminated, never read beyond `len`.
// Mapping is a function object called once at construction as Mapping()(ptr, len); it may move
// `ptr` forward and shorten `len` (a stripping policy, for instance).
template <class Char, class Len, class Mapping>
struct mapped_ptr_len_pair {
  Char* ptr;
  Len len;

  mapped_ptr_len_pair(Char* p, Len n) : ptr(p), len(n) { Mapping()(ptr, len); }

  bool empty() const { return len == 0; }
  // A copy of the viewed characters.
  std::basic_string<typename std::remove_const<Char>::type> str() const {
    return std::basic_string<typename std::remove_const<Char>::type>(ptr, len);
  }
};

}  // namespace wx

#endif  // WX_PTR_LEN_PAIR_HPP
