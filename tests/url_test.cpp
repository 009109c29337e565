// Percent-decoders, the query parser and the '?' splitter.
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/interface.hpp>
#include <wx/nv_pair.hpp>
#include <wx/url_decoder.hpp>
#include <wx/url_parser.hpp>
#include "data_table.hpp"

namespace {

using wx::encoding::connector;
using wx::encoding::host;

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

typedef std::vector<std::pair<std::string, std::string>> Entries;

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

TEST(QueryParser, KeepsExistingEntries) {
  wsi::OrderedNameTable args;
  args["first"] = "0";
  EXPECT_EQ((Entries{{"first", "2"}, {"second", "1"}}), parse<host>("second=1&FIRST=2", args));
}

// A million separators add nothing; a hundred thousand pairs and a megabyte of lone '%' bytes are
// kept whole, in order.
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

}  // namespace
