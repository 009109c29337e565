// The case-insensitive compare and the name tables built on it: case-insensitive keys, insertion
// order, last value wins.
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/interface.hpp>
#include <wsi/less_nocase.hpp>
#include <wx/char_casing.hpp>
#include "data_table.hpp"

namespace {

typedef wx::char_casing<char, wx::language::english> Casing;

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

typedef std::vector<std::pair<std::string, std::string>> Entries;

TEST(MapOrdered, FirstSpellingAndPositionKeptLastValueWins) {
  wsi::OrderedNameTable map;
  map["b"] = "1";
  map["A"] = "2";
  map[""] = "empty";
  map["c"] = "3";
  map["B"] = "4";
  map[std::string("C\0x", 3)] = "5";  // one key with "c": compared as C strings
  const Entries expected = {{"b", "4"}, {"A", "2"}, {"", "empty"}, {"c", "5"}};
  EXPECT_EQ(expected, Entries(map.begin(), map.end()));
  // A lookup finds any spelling and never inserts.
  ASSERT_NE(nullptr, map.lookup("a"));
  EXPECT_EQ("2", *map.lookup("a"));
  EXPECT_EQ(nullptr, map.lookup("d"));
  EXPECT_EQ(4u, map.size());
}

}  // namespace
