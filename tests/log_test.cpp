// The logger: level words, the level gate, lazy file creation and the one-line message format;
// the process-wide logger's set-up at the first handle, and its tear-down.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/interface.hpp>
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

// The smallest handle there is: only its construction, which sets up logging, matters here.
class SetUpHandle : public wsi::Handle {
 public:
  wsi::Request& Request() override { std::abort(); }
  const wsi::Request& Request() const override { std::abort(); }
  wsi::Response& Response() override { std::abort(); }
  const wsi::Response& Response() const override { std::abort(); }
  void _dump(std::ostream&) const override {}
};

// TMPDIR and W3_LOG_DIR name a directory; nothing is logged, so no file is made there.
class LogSetUp : public ::testing::Test {
 protected:
  void SetUp() override {
    wsi::Handle::closeLog();
    for (const char* name : {"W3_LOG_DIR", "W3_CONFIG", "WSI_LOG"})
      unsetenv(name);
    setenv("TMPDIR", dir_.c_str(), 1);
  }
  void TearDown() override {
    wsi::Handle::closeLog();
    unlink(config_.c_str());
  }
  void writeConfig(const std::string& text) {
    std::ofstream(config_) << text;
    setenv("W3_CONFIG", config_.c_str(), 1);
  }

  // The level that a new logger takes from the WSI_LOG value `value` in the environment.
  int levelFromEnvironment(const std::string& value) {
    wsi::Handle::closeLog();
    setenv("WSI_LOG", value.c_str(), 1);
    SetUpHandle handle;
    return wsi::Handle::plog_->level;
  }

  const std::string dir_ = ::testing::TempDir();
  const std::string config_ = dir_ + "wsi-setup-config-" + std::to_string(getpid());
};

// Without W3_LOG_DIR the logger picks a temporary file; without WSI_LOG it keeps its level.
TEST_F(LogSetUp, LogFileAndLevelFromEnvironment) {
  SetUpHandle first;
  ASSERT_NE(nullptr, wsi::Handle::plog_);
  EXPECT_EQ(dir_ + "WSI-" + std::to_string(getpid()) + ".log", wsi::Handle::plog_->file_name);
  EXPECT_EQ(wx::log::log::default_level, wsi::Handle::plog_->level);
  wsi::Handle::closeLog();
  setenv("W3_LOG_DIR", dir_.c_str(), 1);
  setenv("WSI_LOG", "debug", 1);
  SetUpHandle second;
  const wx::log::log* logger = wsi::Handle::plog_;
  ASSERT_NE(nullptr, logger);
  EXPECT_EQ(dir_ + "qv_wsi.log", logger->file_name);
  EXPECT_TRUE(logger->enabled);
  EXPECT_EQ(7, logger->level);
}

TEST_F(LogSetUp, ConfigFileReadOnceUntilCloseLogAndEnvironmentBeatsIt) {
  writeConfig("# comment\nOTHER=1\n  WSI_LOG = info\r\n");
  SetUpHandle first;
  wx::log::log* logger = wsi::Handle::plog_;
  ASSERT_NE(nullptr, logger);
  EXPECT_EQ(6, logger->level);
  writeConfig("WSI_LOG=1\n");
  SetUpHandle second;
  EXPECT_EQ(logger, wsi::Handle::plog_);
  EXPECT_EQ(6, logger->level);
  wsi::Handle::closeLog();
  SetUpHandle third;
  ASSERT_NE(nullptr, wsi::Handle::plog_);
  EXPECT_EQ(1, wsi::Handle::plog_->level);
  EXPECT_EQ(5, levelFromEnvironment("5"));
}

TEST_F(LogSetUp, ValueTrimmedAtTheEndAndCutAt256) {
  EXPECT_EQ(7, levelFromEnvironment("7  "));
  EXPECT_EQ(7, levelFromEnvironment("7\t\n\r\v\f "));
  EXPECT_EQ(3, levelFromEnvironment(" 7"));  // leading whitespace stays and spoils the number
  // 256 characters are taken: "5" and blanks, trimmed to "5"; the rest never reaches LevelOf.
  EXPECT_EQ(5, levelFromEnvironment("5" + std::string(255, ' ') + std::string(44, 'x')));
  EXPECT_EQ(3, levelFromEnvironment("5" + std::string(254, ' ') + "x"));
}

}  // namespace
