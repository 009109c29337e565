// The vocabulary in both encodings: case-insensitive names and name tables, percent-decoders, the
// query parser, the '?' splitter, HTTP status texts and methods, and the response header rules.
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/wsi.hpp>
#include <wx/wx.hpp>
#include "data_table.hpp"

namespace {

using namespace wsi::Http;
using wx::encoding::connector;
using wx::encoding::host;
typedef wx::char_casing<char, wx::language::english> Casing;
typedef std::vector<std::pair<std::string, std::string>> Entries;

TEST(NocaseCompare, Table) {
  const wsi::less_nocase_eng less;
  for (const wsi_test::Row& row : wsi_test::readTable("nocase_compare.tsv")) {
    SCOPED_TRACE("nocase_compare.tsv line " + std::to_string(row.line));
    const int expected = std::stoi(row[3]);
    if (row[2] != "-") {
      EXPECT_EQ(expected,
                Casing::nocase_compare(row[0].c_str(), row[1].c_str(), std::stoul(row[2])));
      continue;
    }
    EXPECT_EQ(expected, Casing::nocase_compare(row[0].c_str(), row[1].c_str()));
    EXPECT_EQ(expected < 0, less(row[0], row[1]));
    EXPECT_EQ(expected > 0, less(row[1], row[0]));
  }
}

TEST(NocaseCompare, UpperCaseTableIsIdentityExceptAsciiLetters) {
  for (int c = 0; c < 256; ++c)
    EXPECT_EQ(c >= 'a' && c <= 'z' ? c - 32 : c,
              static_cast<unsigned char>(Casing::ascii_toupper_[c]))
        << c;
}

template <bool Plus, wx::encoding::Encoding E>
std::string decode(const std::string& text) {
  // Bytes that would complete a cut escape follow the text but lie outside its length.
  const std::string buffer = text + "41";
  std::string out;
  wx::basic_url_decoder<Plus, E>()(out, buffer.data(), text.size());
  return out;
}

TEST(UrlDecoder, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("url_decode.tsv")) {
    SCOPED_TRACE("url_decode.tsv line " + std::to_string(row.line));
    EXPECT_EQ(row[1], (decode<true, host>(row[0])));
    EXPECT_EQ(row[1], (decode<true, connector>(row[0])));
    EXPECT_EQ(row[2], (decode<false, host>(row[0])));
    EXPECT_EQ(row[2], (decode<false, connector>(row[0])));
  }
}

template <wx::encoding::Encoding E>
Entries parse(const std::string& query, wsi::OrderedNameTable args = wsi::OrderedNameTable()) {
  typename wx::query_parser<E>::type()(args, query);
  return Entries(args.begin(), args.end());
}

TEST(QueryParser, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("query_parse.tsv")) {
    SCOPED_TRACE("query_parse.tsv line " + std::to_string(row.line));
    ASSERT_EQ(1u, row.fields.size() % 2) << "a name without its value";
    Entries expected;
    for (std::size_t i = 1; i + 1 < row.fields.size(); i += 2)
      expected.emplace_back(row[i], row[i + 1]);
    EXPECT_EQ(expected, parse<host>(row[0]));
    EXPECT_EQ(expected, parse<connector>(row[0]));
  }
}

// The name table keeps first spellings and places, takes last values, compares keys as C strings;
// a lookup finds any spelling and never inserts; the parser adds to what the table holds.
TEST(QueryParser, AddsToANameTable) {
  wsi::OrderedNameTable map;
  map["b"] = "1";
  map["A"] = "2";
  map[""] = "empty";
  map["c"] = "3";
  map["B"] = "4";
  map[std::string("C\0x", 3)] = "5";  // one key with "c"
  ASSERT_NE(nullptr, map.lookup("a"));
  EXPECT_EQ("2", *map.lookup("a"));
  EXPECT_EQ(nullptr, map.lookup("x"));
  const Entries expected = {{"b", "4"}, {"A", "7"}, {"", "empty"}, {"c", "5"}, {"d", "6"}};
  EXPECT_EQ(expected, parse<host>("d=6&a=7", map));
}

// No bound: a million separators add nothing; 100,000 pairs and a megabyte of '%' stay whole.
TEST(QueryParser, HugeInputs) {
  EXPECT_TRUE(parse<host>(std::string(1000000, '&')).empty());
  std::string query;
  for (int i = 0; i < 100000; ++i)
    query += "n" + std::to_string(i) + "=v&";
  const std::string percents(1 << 20, '%');
  const Entries entries = parse<connector>(query + "big=" + percents);
  ASSERT_EQ(100001u, entries.size());
  EXPECT_EQ("n99999", entries[99999].first);
  EXPECT_EQ(percents, entries.back().second);
}

TEST(UrlQueryPair, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("nv_pair.tsv")) {
    SCOPED_TRACE("nv_pair.tsv line " + std::to_string(row.line));
    const wx::url_query_pair pair(row[0]);
    EXPECT_EQ(row[1], pair.first);
    EXPECT_EQ(row[2], pair.second);
    EXPECT_EQ(row[3] == "1", pair.found);
  }
}

TEST(StatusDesc, EveryCodeFromMinusTenToThousand) {
  std::map<int, std::string> texts;
  for (const wsi_test::Row& row : wsi_test::readTable("status_texts.tsv"))
    texts[std::stoi(row[0])] = row[1];
  for (int code = -10; code <= 1000; ++code) {
    const std::string expected = texts.count(code) ? texts[code] : "Unknown Status";
    EXPECT_EQ(expected, StatusDesc<host>(static_cast<Status>(code))) << code;
    EXPECT_EQ(expected, StatusDesc<connector>(static_cast<Status>(code))) << code;
  }
  EXPECT_STREQ("Unknown Status", StatusDesc<connector>(static_cast<Status>(-2147483647 - 1)));
}

TEST(Methods, NamesAndLookup) {
  for (const wsi_test::Row& row : wsi_test::readTable("method_names.tsv")) {
    const MethodId id = static_cast<MethodId>(std::stoll(row[0]));
    EXPECT_EQ(row[1], MethodNameOf<host>(id)) << "method_names.tsv line " << row.line;
    EXPECT_EQ(row[1], MethodNameOf<connector>(id)) << "method_names.tsv line " << row.line;
  }
  for (const wsi_test::Row& row : wsi_test::readTable("method_ids.tsv")) {
    SCOPED_TRACE("method_ids.tsv line " + std::to_string(row.line));
    EXPECT_EQ(std::stoi(row[1]), MethodIdOf<host>(row[0].c_str()));
    EXPECT_EQ(std::stoi(row[1]), MethodIdOf<connector>(row[0].c_str()));
  }
}

typedef std::vector<std::string> Calls;

std::ostream g_nowhere(nullptr);  // a stream without a buffer

// A stream back end's response recording the calls the header rules make on it, one text a call.
class RecordingResponse : public wsi::IosResponse {
 public:
  RecordingResponse() : wsi::IosResponse(g_nowhere) {}
  void setContentType(const std::string& t) override { calls.push_back("type:" + t); }
  void setContentEncoding(const std::string& e) override { calls.push_back("encoding:" + e); }
  void setContentLength(unsigned long n) override {
    calls.push_back("length:" + std::to_string(n));
  }
  void _setHttpHeader(const std::string& n, const std::string& v) override {
    calls.push_back("header:" + n + "=" + v);
  }

  Calls calls;
};

template <wx::encoding::Encoding E>
Calls callsOf(const std::string& name, const std::string& value) {
  RecordingResponse response;
  response._setHttpHeaderHelper<E>(name, value);
  return response.calls;
}

TEST(HeaderRules, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("header_rules.tsv")) {
    SCOPED_TRACE("header_rules.tsv line " + std::to_string(row.line));
    const Calls expected(row.fields.begin() + 2, row.fields.end());
    EXPECT_EQ(expected, callsOf<host>(row[0], row[1]));
    EXPECT_EQ(expected, callsOf<connector>(row[0], row[1]));
    std::string type, encoding;  // the charset split, which hosts also call on its own
    if (row[0] == "Content-Type" && row[1].find(';') != std::string::npos) {
      EXPECT_TRUE(RecordingResponse()._extractContentEncoding<host>(row[1], type, encoding));
      EXPECT_EQ(expected, (Calls{"type:" + type, "encoding:" + encoding}));
    }
  }
}

// Every byte after a digit: only the ten digits extend the length; any other drops the header.
TEST(HeaderRules, ContentLengthTakesDigitsOnly) {
  for (int c = 0; c < 256; ++c) {
    const std::string value = "1" + std::string(1, static_cast<char>(c));
    const Calls expected =
        c >= '0' && c <= '9' ? Calls{"length:" + std::to_string(10 + c - '0')} : Calls();
    EXPECT_EQ(expected, callsOf<host>("Content-Length", value)) << c;
    EXPECT_EQ(expected, callsOf<connector>("Content-Length", value)) << c;
  }
}

}  // namespace
