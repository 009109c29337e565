// The logger: level words, the level gate, lazy file creation and the one-line message format.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <wx/log.hpp>

namespace {

using wx::log::log;

struct LevelCase {
  const char* text;
  int level;
};

TEST(LevelOf, Table) {
  const LevelCase cases[] = {
      {"0", 0},
      {"7", 7},
      {"-1", -1},
      {"+5", 5},
      {"42", 42},
      {"007", 7},
      {"2147483647", INT_MAX},
      {"2147483648", INT_MAX},
      {"99999999999999999999", INT_MAX},
      {"-2147483648", INT_MIN},
      {"-99999999999999999999", INT_MIN},
      {"emerg", 0},
      {"ALERT", 1},
      {"Crit", 2},
      {"err", 3},
      {"ERROR", 3},
      {"warning", 4},
      {"Warn", 4},
      {"notice", 5},
      {"info", 6},
      {"DEBUG", 7},
      {"", 3},
      {"-", 3},
      {"+", 3},
      {"7x", 3},
      {" 7", 3},
      {"debugx", 3},
      {"deb", 3},
      {"verbose", 3},
      {"1.5", 3},
  };
  for (const LevelCase& c : cases)
    EXPECT_EQ(c.level, log::LevelOf(c.text)) << c.text;
}

class LogFile : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/wsi-log-test-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(pattern));
    dir_ = pattern;
    path_ = dir_ + "/test.log";
  }
  void TearDown() override {
    unlink(path_.c_str());
    rmdir(dir_.c_str());
  }

  std::vector<std::string> lines() const {
    std::ifstream in(path_);
    std::vector<std::string> result;
    for (std::string line; std::getline(in, line);)
      result.push_back(line);
    return result;
  }
  bool exists() const { return access(path_.c_str(), F_OK) == 0; }

  std::string dir_;
  std::string path_;
};

TEST_F(LogFile, LevelGate) {
  struct Gate {
    int level;
    bool writes3;
    bool writes7;
  };
  const Gate gates[] = {{3, true, false}, {7, true, true}, {-1, true, true}, {0, false, false}};
  for (const Gate& g : gates) {
    unlink(path_.c_str());
    log logger("T");
    logger.file_name = path_;
    logger.enabled = true;
    logger.level = g.level;
    logger.Log<3>(__FILE__, __LINE__, "gate", "three");
    logger.Log<7>(__FILE__, __LINE__, "gate", "seven");
    std::string written;
    for (const std::string& line : lines())
      written += line.substr(line.rfind(' ') + 1) + ";";
    EXPECT_EQ(std::string(g.writes3 ? "three;" : "") + (g.writes7 ? "seven;" : ""), written)
        << "level " << g.level;
  }
}

TEST_F(LogFile, DisabledOrSilentLoggerCreatesNoFile) {
  log logger("T");
  logger.file_name = path_;
  EXPECT_EQ(log::default_level, logger.level);
  logger.Log<1>(__FILE__, __LINE__, "f", "disabled");
  logger.enabled = true;
  logger.Log<7>(__FILE__, __LINE__, "f", "above the level");
  EXPECT_FALSE(exists());
  logger.Log<3>(__FILE__, __LINE__, "f", "written");
  EXPECT_TRUE(exists());
  struct stat info;
  ASSERT_EQ(0, stat(path_.c_str(), &info));
  EXPECT_EQ(0600u, info.st_mode & 0777u);
}

TEST_F(LogFile, OneLineWithEscapesAndFields) {
  log logger("WSI");
  logger.file_name = path_;
  logger.enabled = true;
  logger.Log<3>("src/a.cpp", 42, "wsi::X::f", "v=%s n=%d", "a\nb\r\tc\\d\x01\x7f", 5);
  const std::string large(10000, 'y');
  logger.Log<3>("src/a.cpp", 43, "g", "%s", large.c_str());
  const std::vector<std::string> got = lines();
  ASSERT_EQ(2u, got.size());
  const std::regex shape(
      "\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z err WSI\\[\\d+:\\d+\\] src/a.cpp:42 "
      "wsi::X::f: v=a\\\\nb\\\\r\\\\tc\\\\\\\\d\\\\x01\\\\x7f n=5");
  EXPECT_TRUE(std::regex_match(got[0], shape)) << got[0];
  EXPECT_EQ(": " + large, got[1].substr(got[1].size() - large.size() - 2));
}

TEST_F(LogFile, UnwritableFileLosesMessageAndRetries) {
  log logger("T");
  logger.file_name = dir_ + "/missing/test.log";
  logger.enabled = true;
  logger.Log<3>(__FILE__, __LINE__, "f", "lost");
  logger.file_name = path_;
  logger.Log<3>(__FILE__, __LINE__, "f", "kept");
  const std::vector<std::string> got = lines();
  ASSERT_EQ(1u, got.size());
  EXPECT_NE(std::string::npos, got[0].find("kept"));
}

TEST(TempFileName, UsesTmpdirOrTmp) {
  const char* saved = getenv("TMPDIR");
  const std::string old = saved ? saved : "";
  const std::string pid = std::to_string(getpid());
  log logger("WSI");
  setenv("TMPDIR", "/var/tmp", 1);
  logger._setTempFileName(nullptr);
  EXPECT_EQ("/var/tmp/WSI-" + pid + ".log", logger.file_name);
  setenv("TMPDIR", "", 1);
  logger._setTempFileName(nullptr);
  EXPECT_EQ("/tmp/WSI-" + pid + ".log", logger.file_name);
  unsetenv("TMPDIR");
  logger._setTempFileName(nullptr);
  EXPECT_EQ("/tmp/WSI-" + pid + ".log", logger.file_name);
  logger._setTempFileName("/x/y.log");
  EXPECT_EQ("/x/y.log", logger.file_name);
  if (saved) setenv("TMPDIR", old.c_str(), 1);
}

}  // namespace
