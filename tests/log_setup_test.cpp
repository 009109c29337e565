// The process-wide logger's set-up at the first handle, and its tear-down.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

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

class LogSetUp : public ::testing::Test {
 protected:
  void SetUp() override {
    wsi::Handle::closeLog();
    char pattern[] = "/tmp/wsi-setup-test-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(pattern));
    dir_ = pattern;
    unsetenv("W3_LOG_DIR");
    unsetenv("W3_CONFIG");
    unsetenv("WSI_LOG");
    setenv("TMPDIR", dir_.c_str(), 1);
  }
  void TearDown() override {
    wsi::Handle::closeLog();
    for (const char* name : {"qv_wsi.log", "config", "log"})
      unlink((dir_ + "/" + name).c_str());
    unlink((dir_ + "/WSI-" + std::to_string(getpid()) + ".log").c_str());
    rmdir(dir_.c_str());
  }

  void writeConfig(const std::string& text) {
    std::ofstream(dir_ + "/config") << text;
    setenv("W3_CONFIG", (dir_ + "/config").c_str(), 1);
  }

  // The level the logger got from a WSI_LOG value given in the environment.
  int levelFromEnvironment(const std::string& value) {
    wsi::Handle::closeLog();
    setenv("WSI_LOG", value.c_str(), 1);
    SetUpHandle handle;
    return wsi::Handle::plog_->level;
  }

  std::string dir_;
};

TEST_F(LogSetUp, NoHandleNoLogger) {
  EXPECT_EQ(nullptr, wsi::Handle::plog_);
}

TEST_F(LogSetUp, LogDirAndLevelFromEnvironment) {
  setenv("W3_LOG_DIR", dir_.c_str(), 1);
  setenv("WSI_LOG", "debug", 1);
  SetUpHandle handle;
  wx::log::log* logger = wsi::Handle::plog_;
  ASSERT_NE(nullptr, logger);
  EXPECT_EQ("WSI", logger->name);
  EXPECT_EQ(dir_ + "/qv_wsi.log", logger->file_name);
  EXPECT_TRUE(logger->enabled);
  EXPECT_EQ(7, logger->level);
  EXPECT_NE(0, access(logger->file_name.c_str(), F_OK));  // nothing logged yet, no file
  logger->Log<7>(__FILE__, __LINE__, "test", "traced");
  std::ifstream in(dir_ + "/qv_wsi.log");
  std::string line;
  ASSERT_TRUE(std::getline(in, line));
  EXPECT_NE(std::string::npos, line.find("traced"));
}

TEST_F(LogSetUp, TemporaryFileAndDefaultLevelWithoutConfiguration) {
  SetUpHandle handle;
  ASSERT_NE(nullptr, wsi::Handle::plog_);
  EXPECT_EQ(dir_ + "/WSI-" + std::to_string(getpid()) + ".log", wsi::Handle::plog_->file_name);
  EXPECT_EQ(wx::log::log::default_level, wsi::Handle::plog_->level);
}

TEST_F(LogSetUp, LevelFromConfigFileReadOnceUntilCloseLog) {
  writeConfig("# comment\nOTHER=1\n  WSI_LOG = info\r\n");
  SetUpHandle first;
  wx::log::log* logger = wsi::Handle::plog_;
  ASSERT_NE(nullptr, logger);
  EXPECT_EQ(6, logger->level);

  // A second handle does not read the configuration again.
  writeConfig("WSI_LOG=1\n");
  SetUpHandle second;
  EXPECT_EQ(logger, wsi::Handle::plog_);
  EXPECT_EQ(6, logger->level);

  // After closeLog() the next handle sets up a new logger from the new configuration.
  wsi::Handle::closeLog();
  EXPECT_EQ(nullptr, wsi::Handle::plog_);
  SetUpHandle third;
  ASSERT_NE(nullptr, wsi::Handle::plog_);
  EXPECT_EQ(1, wsi::Handle::plog_->level);
}

TEST_F(LogSetUp, EnvironmentBeatsConfigFile) {
  writeConfig("WSI_LOG=1\n");
  EXPECT_EQ(5, levelFromEnvironment("5"));
}

TEST_F(LogSetUp, ValueTrimmedAndCutAt256) {
  EXPECT_EQ(7, levelFromEnvironment("7  "));
  EXPECT_EQ(7, levelFromEnvironment("7\t\n\r\v\f "));
  EXPECT_EQ(3, levelFromEnvironment(" 7"));  // leading whitespace stays and spoils the number
  EXPECT_EQ(-1, levelFromEnvironment("-1"));
  // 256 characters are taken: "5" and blanks, trimmed to "5"; the rest never reaches LevelOf.
  EXPECT_EQ(5, levelFromEnvironment("5" + std::string(255, ' ') + std::string(44, 'x')));
  EXPECT_EQ(3, levelFromEnvironment("5" + std::string(254, ' ') + "x"));
}

TEST_F(LogSetUp, SixteenThreadsSetUpOnce) {
  std::vector<wx::log::log*> seen(16, nullptr);
  std::vector<std::thread> threads;
  for (int i = 0; i < 16; ++i)
    threads.emplace_back([&seen, i] {
      SetUpHandle handle;
      seen[i] = wsi::Handle::plog_;
    });
  for (std::thread& t : threads)
    t.join();
  ASSERT_NE(nullptr, seen[0]);
  for (wx::log::log* logger : seen)
    EXPECT_EQ(seen[0], logger);
}

TEST_F(LogSetUp, CloseLogWithoutLoggerLeavesOnceControl) {
  SetUpHandle handle;
  wx::log::log* logger = wsi::Handle::plog_;
  const pthread_once_t done = wsi::Handle::init_log_once_;
  EXPECT_NE(PTHREAD_ONCE_INIT, done);
  wsi::Handle::plog_ = nullptr;
  wsi::Handle::closeLog();
  EXPECT_EQ(done, wsi::Handle::init_log_once_);
  wsi::Handle::plog_ = logger;
  wsi::Handle::closeLog();
  EXPECT_EQ(PTHREAD_ONCE_INIT, wsi::Handle::init_log_once_);
  wsi::Handle::closeLog();
  EXPECT_EQ(nullptr, wsi::Handle::plog_);
}

}  // namespace
