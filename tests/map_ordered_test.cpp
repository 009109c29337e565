// wx::map_ordered: case-insensitive keys, insertion order, last value wins.
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/interface.hpp>

namespace {

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
