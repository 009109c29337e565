// The logger: level words, the level gate, lazy file creation and the one-line message format;
// the process-wide logger's set-up at the first handle, and its tear-down.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include <wsi/wsi.hpp>
#include "data_table.hpp"
#include "ios_test_util.hpp"

namespace {

using wx::log::log;

TEST(LevelOf, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("level_of.tsv"))
    EXPECT_EQ(std::stoi(row[1]), log::LevelOf(row[0].c_str())) << "level_of.tsv line " << row.line;
}

// A new logger is disabled; its private file comes with the first message written; the level gate
// (-1 lets all through); escaped control bytes; a message longer than any buffer written whole.
TEST(Log, LazyFileLevelGateAndOneLineAMessage) {
  const wsi_test::TempDir dir;
  log logger("WSI");
  logger.file_name = dir / "test.log";
  logger.Log<1>("src/a.cpp", 42, "wsi::X::f", "disabled");
  logger.enabled = true;
  EXPECT_NE(0, access(logger.file_name.c_str(), F_OK));
  for (const int level : {3, 7, -1, 0}) {
    logger.level = level;
    logger.Log<3>("src/a.cpp", 42, "wsi::X::f", "%d:three", level);
    logger.Log<7>("src/a.cpp", 42, "wsi::X::f", "%d:seven", level);
  }
  logger.level = 3;
  logger.Log<3>("src/a.cpp", 42, "wsi::X::f", "v=%s n=%d", "a\nb\r\tc\\d\x01\x7f", 5);
  const std::string large(10000, 'y');
  logger.Log<3>("src/a.cpp", 42, "wsi::X::f", "%s", large.c_str());
  const std::regex head(
      "^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z (\\w+) WSI\\[\\d+:\\d+\\] src/a.cpp:42 "
      "wsi::X::f: ",
      std::regex::multiline);
  EXPECT_EQ(
      "err 3:three\nerr 7:three\ndebug 7:seven\nerr -1:three\ndebug -1:seven\n"
      "err v=a\\nb\\r\\tc\\\\d\\x01\\x7f n=5\nerr " +
          large + "\n",
      std::regex_replace(wsi_test::readFile(logger.file_name), head, "$1 "));
  struct stat info;
  ASSERT_EQ(0, stat(logger.file_name.c_str(), &info));
  EXPECT_EQ(0600u, info.st_mode & 0777u);
}

// The logger that the first handle (a stream handle, which logs nothing) sets up; a second one
// keeps it even when the configuration file changed; after closeLog() it is read again (next row).
TEST(LogSetUp, Table) {
  const std::string dir = ::testing::TempDir();
  const std::string config = dir + "wsi-setup-config-" + std::to_string(getpid());
  setenv("TMPDIR", dir.c_str(), 1);
  for (const wsi_test::Row& row : wsi_test::readTable("log_setup.tsv")) {
    SCOPED_TRACE("log_setup.tsv line " + std::to_string(row.line));
    wsi::Handle::closeLog();
    for (const char* name : {"W3_LOG_DIR", "W3_CONFIG", "WSI_LOG"})
      unsetenv(name);
    if (row[0] == "yes") setenv("W3_LOG_DIR", dir.c_str(), 1);
    if (row[1] != "-") wsi_test::writeFile(config, row[1]);
    if (row[1] != "-") setenv("W3_CONFIG", config.c_str(), 1);
    if (row[2] != "-") setenv("WSI_LOG", row[2].c_str(), 1);
    const wsi_test::Exchange first;
    const log* logger = wsi::Handle::plog_;
    ASSERT_NE(nullptr, logger);
    EXPECT_TRUE(logger->enabled);
    EXPECT_EQ(std::stoi(row[3]), logger->level);
    const std::string pid = std::to_string(getpid());
    EXPECT_EQ(dir + std::regex_replace(row[4], std::regex("\\$PID"), pid), logger->file_name);
    wsi_test::writeFile(config, "WSI_LOG=1\n");
    setenv("W3_CONFIG", config.c_str(), 1);
    const wsi_test::Exchange second;
    EXPECT_EQ(logger, wsi::Handle::plog_);
    EXPECT_EQ(std::stoi(row[3]), logger->level);
  }
  wsi::Handle::closeLog();
  unlink(config.c_str());
}

}  // namespace
