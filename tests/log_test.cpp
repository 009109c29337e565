// The logger: level words, the level gate, lazy file creation and the one-line message format.
#include <sys/stat.h>
#include <unistd.h>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <wx/log.hpp>
#include "data_table.hpp"

namespace {

using wx::log::log;

TEST(LevelOf, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("level_of.tsv"))
    EXPECT_EQ(std::stoi(row[1]), log::LevelOf(row[0].c_str())) << "level_of.tsv line " << row.line;
}

// An enabled logger "WSI" at the default level, writing to a file of this process's own.
class LogFile : public ::testing::Test {
 protected:
  void SetUp() override {
    logger_.file_name = ::testing::TempDir() + "wsi-log-test-" + std::to_string(getpid()) + ".log";
    logger_.enabled = true;
  }
  void TearDown() override { unlink(logger_.file_name.c_str()); }
  std::vector<std::string> lines() const {
    std::ifstream in(logger_.file_name);
    std::vector<std::string> result;
    for (std::string line; std::getline(in, line);)
      result.push_back(line);
    return result;
  }

  log logger_{"WSI"};
};

// The file is created (private to the owner) at the first message written, not before. Then
// Log<3> and Log<7> at the levels 3, 7, -1 (lets everything through) and 0, in that order.
TEST_F(LogFile, LazyFileAndLevelGate) {
  logger_.enabled = false;
  logger_.Log<1>(__FILE__, __LINE__, "f", "disabled");
  logger_.enabled = true;
  logger_.Log<7>(__FILE__, __LINE__, "f", "above the default level");
  EXPECT_NE(0, access(logger_.file_name.c_str(), F_OK));
  for (const int level : {3, 7, -1, 0}) {
    logger_.level = level;
    logger_.Log<3>(__FILE__, __LINE__, "gate", "%d:three", level);
    logger_.Log<7>(__FILE__, __LINE__, "gate", "%d:seven", level);
  }
  std::string written;
  for (const std::string& line : lines())
    written += line.substr(line.rfind(' ') + 1) + ";";
  EXPECT_EQ("3:three;7:three;7:seven;-1:three;-1:seven;", written);
  struct stat info;
  ASSERT_EQ(0, stat(logger_.file_name.c_str(), &info));
  EXPECT_EQ(0600u, info.st_mode & 0777u);
}

// Control bytes are escaped so that a message can never end its line early or forge another;
// a message longer than the formatting buffer is written whole.
TEST_F(LogFile, OneLineAMessageWithEscapes) {
  logger_.Log<3>("src/a.cpp", 42, "wsi::X::f", "v=%s n=%d", "a\nb\r\tc\\d\x01\x7f", 5);
  const std::string large(10000, 'y');
  logger_.Log<3>("src/a.cpp", 43, "g", "%s", large.c_str());
  const std::vector<std::string> got = lines();
  ASSERT_EQ(2u, got.size());
  const std::regex shape(
      "\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z err WSI\\[\\d+:\\d+\\] src/a.cpp:42 "
      "wsi::X::f: v=a\\\\nb\\\\r\\\\tc\\\\\\\\d\\\\x01\\\\x7f n=5");
  EXPECT_TRUE(std::regex_match(got[0], shape)) << got[0];
  EXPECT_EQ(" g: " + large, got[1].substr(got[1].size() - large.size() - 4));
}

}  // namespace
