// Percent-decoders, the query parser and the '?' splitter.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <wsi/interface.hpp>
#include <wx/nv_pair.hpp>
#include <wx/url_decoder.hpp>
#include <wx/url_parser.hpp>

namespace {

using wx::encoding::connector;
using wx::encoding::host;

template <bool Plus, wx::encoding::Encoding E>
std::string decode(const std::string& text) {
  // Decode from an exact-size heap copy so that ASan catches any read past the length.
  std::unique_ptr<char[]> copy(new char[text.size() ? text.size() : 1]);
  text.copy(copy.get(), text.size());
  std::string out;
  wx::basic_url_decoder<Plus, E>()(out, copy.get(), text.size());
  return out;
}

struct DecodeCase {
  std::string text;
  std::string plus;     // with '+' as a blank
  std::string no_plus;  // with '+' kept
};

TEST(UrlDecoder, Table) {
  const DecodeCase cases[] = {
      {"", "", ""},
      {"abc", "abc", "abc"},
      {"a+b", "a b", "a+b"},
      {"%41%42", "AB", "AB"},
      {"%6a%6A", "jj", "jj"},  // either case
      {"%2B+", "+ ", "++"},    // a decoded '+' stays '+'
      {"%", "%", "%"},
      {"%4", "%4", "%4"},
      {"x%", "x%", "x%"},
      {"x%4", "x%4", "x%4"},
      {"%G1", "%G1", "%G1"},
      {"%1G", "%1G", "%1G"},
      {"%g1", "%g1", "%g1"},  // letters beyond 'f' are not hexadecimal
      {"%%41", "%A", "%A"},
      {"%%%", "%%%", "%%%"},
      {"%+41", "% 41", "%+41"},
      {"% 1", "% 1", "% 1"},
      {"%00", std::string(1, '\0'), std::string(1, '\0')},
      {"%FF%80", "\xff\x80", "\xff\x80"},
      {std::string("a\0b", 3), std::string("a\0b", 3), std::string("a\0b", 3)},
  };
  for (const DecodeCase& c : cases) {
    EXPECT_EQ(c.plus, (decode<true, host>(c.text))) << c.text;
    EXPECT_EQ(c.plus, (decode<true, connector>(c.text))) << c.text;
    EXPECT_EQ(c.no_plus, (decode<false, host>(c.text))) << c.text;
    EXPECT_EQ(c.no_plus, (decode<false, connector>(c.text))) << c.text;
  }
}

TEST(UrlDecoder, LengthBoundsTheEscape) {
  // "%41" cut to two bytes is an incomplete escape, whatever follows in memory.
  std::string out;
  wx::basic_url_decoder<true, host>()(out, "%41", 2);
  EXPECT_EQ("%4", out);
  out.clear();
  wx::basic_url_decoder<true, host>()(out, nullptr, 0);
  EXPECT_EQ("", out);
}

TEST(UrlDecoder, AppendsToOutput) {
  std::string out = "x=";
  wx::basic_url_decoder<false, host>()(out, "%31", 3);
  EXPECT_EQ("x=1", out);
}

TEST(UrlDecoder, LargeInput) {
  const std::string text(1 << 20, '%');
  EXPECT_EQ(text, (decode<true, host>(text)));
  std::string escaped;
  for (int i = 0; i < 100000; ++i)
    escaped += "%7e";
  EXPECT_EQ(std::string(100000, '~'), (decode<true, host>(escaped)));
}

typedef std::vector<std::pair<std::string, std::string>> Entries;

template <wx::encoding::Encoding E>
Entries parse(const std::string& query) {
  wsi::OrderedNameTable args;
  typename wx::query_parser<E>::type()(args, query);
  return Entries(args.begin(), args.end());
}

struct QueryCase {
  std::string query;
  Entries expected;
};

TEST(QueryParser, Table) {
  const QueryCase cases[] = {
      {"", {}},
      {"&&&", {}},
      {"b=1& a = 'x y' &flag&B=2&c=%41+B&=z&d=", {{"b", "2"}, {"a", "x y"}, {"c", "A B"}}},
      {"a=1&A=2", {{"a", "2"}}},
      {"q=a=b", {{"q", "a=b"}}},
      {"x=%27y%27", {{"x", "'y'"}}},  // quotes made by decoding stay
      {"x='y'", {{"x", "y"}}},
      {"x=\"y\"", {{"x", "y"}}},
      {"x='y\"", {{"x", "'y\""}}},  // quotes must match
      {"x='", {{"x", "'"}}},
      {"x=''", {}},
      {"x=\t'' \t", {}},
      {"x='%20'", {{"x", " "}}},
      {"x=%20", {{"x", " "}}},  // stripping acts before decoding
      {"%20=1", {{" ", "1"}}},
      {"p=a+b", {{"p", "a b"}}},
      {"flag", {}},
      {"=x", {}},
      {"x=", {}},
      {" = 1 ", {}},
      {"n%3Dm=v%26w", {{"n=m", "v&w"}}},
      {"a=%", {{"a", "%"}}},
      {"a=%4", {{"a", "%4"}}},
      {"&a=1&", {{"a", "1"}}},
  };
  for (const QueryCase& c : cases) {
    EXPECT_EQ(c.expected, parse<host>(c.query)) << c.query;
    EXPECT_EQ(c.expected, parse<connector>(c.query)) << c.query;
  }
}

TEST(QueryParser, KeepsExistingEntries) {
  wsi::OrderedNameTable args;
  args["first"] = "0";
  wx::query_parser<host>::type()(args, "second=1&FIRST=2");
  const Entries expected = {{"first", "2"}, {"second", "1"}};
  EXPECT_EQ(expected, Entries(args.begin(), args.end()));
}

TEST(QueryParser, HugeInputs) {
  EXPECT_TRUE(parse<host>(std::string(1000000, '&')).empty());
  std::string pairs;
  for (int i = 0; i < 100000; ++i)
    pairs += "k" + std::to_string(i) + "=v&";
  const Entries parsed = parse<host>(pairs);
  ASSERT_EQ(100000u, parsed.size());
  EXPECT_EQ(std::make_pair(std::string("k99999"), std::string("v")), parsed.back());
  const std::string big = "v=" + std::string(1 << 20, 'x');
  EXPECT_EQ(size_t(1) << 20, parse<connector>(big).front().second.size());
}

struct SplitCase {
  std::string text;
  std::string first;
  std::string second;
  bool found;
};

TEST(UrlQueryPair, Table) {
  const SplitCase cases[] = {
      {"/path", "/path", "", false},     {"/p?", "/p", "", true},           {"?q", "", "q", true},
      {"/p?a=1?b", "/p", "a=1?b", true}, {" /p ? q ", " /p ", " q ", true}, {"", "", "", false},
  };
  for (const SplitCase& c : cases) {
    const wx::url_query_pair pair(c.text);
    EXPECT_EQ(c.first, pair.first) << c.text;
    EXPECT_EQ(c.second, pair.second) << c.text;
    EXPECT_EQ(c.found, pair.found) << c.text;
  }
}

}  // namespace
