// Splitting a text into two parts at its first separator.
#ifndef WX_NV_PAIR_HPP
#define WX_NV_PAIR_HPP

#include <string>

namespace wx {

// True for the one separator byte Sep.
template <class Char, Char Sep>
struct is_sep {
  bool operator()(Char c) const { return c == Sep; }
};

// Finds the first separator of a text; returns its position or npos.
template <class IsSep>
struct splitter {
  std::string::size_type operator()(const std::string& text) const {
    for (std::string::size_type i = 0; i < text.size(); ++i)
      if (IsSep()(text[i])) return i;
    return std::string::npos;
  }
};

// Leaves a part as it is.
struct dummy_stripper {
  void operator()(const char*&, const char*&) const {}
};

// Cuts a text at the separator that Splitter finds and strips each part.
template <class Splitter, class FirstStripper, class SecondStripper>
struct nv_parser {
  // Sets `first` and `second` and returns whether a separator was found. Without one, `first`
  // is the whole (stripped) text and `second` is empty.
  bool operator()(const std::string& text, std::string& first, std::string& second) const {
    const std::string::size_type sep = Splitter()(text);
    const char* const data = text.data();
    const char* first_end = sep == std::string::npos ? data + text.size() : data + sep;
    const char* first_begin = data;
    FirstStripper()(first_begin, first_end);
    first.assign(first_begin, first_end);
    if (sep == std::string::npos) {
      second.clear();
      return false;
    }
    const char* second_begin = data + sep + 1;
    const char* second_end = data + text.size();
    SecondStripper()(second_begin, second_end);
    second.assign(second_begin, second_end);
    return true;
  }
};

// A text cut into two parts by Parser: first, second and whether the separator was found.
template <class First, class Second, class Parser>
struct nv_pair {
  First first;
  Second second;
  bool found;

  explicit nv_pair(const std::string& text) : found(Parser()(text, first, second)) {}
};

// A URL cut at its first '?' into path and query, without stripping.
typedef nv_pair<std::string, std::string,
                nv_parser<splitter<is_sep<char, '?'>>, dummy_stripper, dummy_stripper>>
    url_query_pair;

}  // namespace wx

#endif  // WX_NV_PAIR_HPP
