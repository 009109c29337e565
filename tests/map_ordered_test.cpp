// wx::map_ordered: case-insensitive keys, insertion order, last value wins.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include <wsi/interface.hpp>

namespace {

typedef std::vector<std::pair<std::string, std::string>> Entries;

Entries entriesOf(const wsi::OrderedNameTable& map) {
  return Entries(map.begin(), map.end());
}

TEST(MapOrdered, FirstSpellingAndPositionKeptLastValueWins) {
  wsi::OrderedNameTable map;
  map["b"] = "1";
  map["A"] = "2";
  map["c"] = "3";
  map["B"] = "4";
  const Entries expected = {{"b", "4"}, {"A", "2"}, {"c", "3"}};
  EXPECT_EQ(expected, entriesOf(map));
  EXPECT_EQ(3u, map.size());
}

TEST(MapOrdered, LookupNeverInserts) {
  wsi::OrderedNameTable map;
  map["Content-Type"] = "text/plain";
  ASSERT_NE(nullptr, map.lookup("content-type"));
  EXPECT_EQ("text/plain", *map.lookup("CONTENT-TYPE"));
  EXPECT_EQ(nullptr, map.lookup("Content-Length"));
  EXPECT_EQ(1u, map.size());
  map["Empty"];
  ASSERT_NE(nullptr, map.lookup("empty"));
  EXPECT_EQ("", *map.lookup("empty"));
}

TEST(MapOrdered, EmptyKeyAndEmbeddedNul) {
  wsi::OrderedNameTable map;
  map["z"] = "last";
  map[""] = "empty";
  map["abc"] = "1";
  map[std::string("ABC\0x", 5)] = "2";
  const Entries expected = {{"z", "last"}, {"", "empty"}, {"abc", "2"}};
  EXPECT_EQ(expected, entriesOf(map));
}

TEST(MapOrdered, InsertionOrderIsNotKeyOrder) {
  wsi::OrderedNameTable map;
  const char* names[] = {"zeta", "Alpha", "mu", "BETA", "alpha", "Zeta"};
  for (const char* name : names)
    map[name] = name;
  const Entries expected = {{"zeta", "Zeta"}, {"Alpha", "alpha"}, {"mu", "mu"}, {"BETA", "BETA"}};
  EXPECT_EQ(expected, entriesOf(map));
  // Walking backwards from end gives the reverse order.
  wsi::OrderedNameTable::const_iterator it = map.end();
  --it;
  EXPECT_EQ("BETA", it->first);
}

TEST(MapOrdered, EmptyMapBeginIsEnd) {
  const wsi::OrderedNameTable map;
  EXPECT_TRUE(map.begin() == map.end());
  EXPECT_TRUE(map.empty());
}

}  // namespace
