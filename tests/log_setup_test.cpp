// The process-wide logger's set-up at the first handle, and its tear-down.
#include <stdlib.h>
#include <unistd.h>
#include <cstdlib>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <wsi/interface.hpp>
#include <wx/log.hpp>

namespace {

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
