// Query-string parsing: '&'-separated name=value pairs into an ordered name table.
#ifndef WX_URL_PARSER_HPP
#define WX_URL_PARSER_HPP

#include <string>
#include <utility>

#include <wx/encoding.hpp>
#include <wx/url_decoder.hpp>

namespace wx {

// '&' (0x26) ends a pair.
template <encoding::Encoding E>
struct url_char_is_ampersand {
  bool operator()(char c) const { return c == '&'; }
};

// The first '=' (0x3D) of a pair splits it into name and value.
template <encoding::Encoding E>
struct url_char_is_equal {
  bool operator()(char c) const { return c == '='; }
};

// Narrows [begin, end) by the blanks (0x20) and tabs (0x09) at both ends.
template <encoding::Encoding E>
struct stripper_st {
  void operator()(const char*& begin, const char*& end) const {
    while (begin != end && (*begin == ' ' || *begin == '\t'))
      ++begin;
    while (end != begin && (end[-1] == ' ' || end[-1] == '\t'))
      --end;
  }
};

// As stripper_st, then removes one pair of matching quotes (single or double) around a text of
// at least two bytes. It acts on the raw text, so quotes produced by decoding stay.
template <encoding::Encoding E>
struct url_unquote_stripper_st {
  void operator()(const char*& begin, const char*& end) const {
    stripper_st<E>()(begin, end);
    if (end - begin >= 2 && (*begin == '\'' || *begin == '"') && end[-1] == *begin) {
      ++begin;
      --end;
    }
  }
};

// One pair of a query string after decoding.
template <class Name, class Value, class NameStripper, class ValueStripper>
struct decoded_url_nvp {
  Name name;
  Value value;
  bool has_separator;  // the pair contained an '='
};

// Parses a query string into a map whose operator[] inserts or finds a name. The three flags
// keep pairs without '=', with an empty name and with an empty value; the library's parsers set
// all three false, so only "name=value" pairs with both parts non-empty after decoding are kept.
template <class PairSep, class NameValueSep, class Decoder, class NameStripper, class ValueStripper,
          bool KeepWithoutSeparator, bool KeepEmptyName, bool KeepEmptyValue>
class url_parser {
 public:
  typedef decoded_url_nvp<std::string, std::string, NameStripper, ValueStripper> record_type;

  // Adds the pairs of `query` to `args` in the order of the text and returns `args`. A name
  // given twice (as the map compares names) keeps its first position and spelling and takes
  // the last value. Entries already in `args` stay. Each pair is decoded once and its value
  // swapped into the map as soon as it is decoded, so the result is that of collecting every
  // pair first and storing them in order afterwards. Linear in the length of the query.
  template <class Map>
  Map& operator()(Map& args, const std::string& query) const {
    if (query.empty()) return args;
    const char* const end = query.data() + query.size();
    const char* piece = query.data();
    // One record for all pairs: the name keeps its buffer from pair to pair, and the value
    // takes back the map's former (empty or replaced) value at each swap.
    record_type record;
    for (;;) {
      const char* stop = piece;
      while (stop != end && !PairSep()(*stop))
        ++stop;
      record.name.clear();
      record.value.clear();
      decodePair(piece, stop, record);
      if (isKept(record)) args[record.name].swap(record.value);
      if (stop == end) break;
      piece = stop + 1;
    }
    return args;
  }

 private:
  static bool isKept(const record_type& r) {
    return (r.has_separator || KeepWithoutSeparator) && (!r.name.empty() || KeepEmptyName) &&
           (!r.value.empty() || KeepEmptyValue);
  }

  // Splits [begin, end) at its first '=', strips both parts and decodes them into `record`.
  static void decodePair(const char* begin, const char* end, record_type& record) {
    const char* sep = begin;
    while (sep != end && !NameValueSep()(*sep))
      ++sep;
    record.has_separator = sep != end;
    const char* name_begin = begin;
    const char* name_end = sep;
    NameStripper()(name_begin, name_end);
    url_decode_into<Decoder>()(record.name, name_begin, name_end);
    if (!record.has_separator) return;
    const char* value_begin = sep + 1;
    const char* value_end = end;
    ValueStripper()(value_begin, value_end);
    url_decode_into<Decoder>()(record.value, value_begin, value_end);
  }
};

// The query parser of encoding E, as both request kinds use it.
template <encoding::Encoding E>
struct query_parser {
  typedef url_parser<url_char_is_ampersand<E>, url_char_is_equal<E>, url_plus_decoder<E>,
                     stripper_st<E>, url_unquote_stripper_st<E>, false, false, false>
      type;
};

}  // namespace wx

#endif  // WX_URL_PARSER_HPP
