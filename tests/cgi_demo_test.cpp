// wsi_demo --cgi as a web server runs it: an environment, standard input and output, and the
// message on standard error when a response cannot be completed.
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "data_table.hpp"
#include "ios_test_util.hpp"

namespace {

TEST(CgiDemo, AnswersAsTheTableSays) {
  const wsi_test::TempDir dir;
  for (const wsi_test::Row& row : wsi_test::readTable("cgi_demo.tsv")) {
    SCOPED_TRACE(row[0] + " (cgi_demo.tsv line " + std::to_string(row.line) + ")");
    const bool closed = row[4] == "(closed)";
    wsi_test::writeFile(dir / "in", row[2]);
    std::string command = "env -i";
    std::istringstream lines(row[1]);
    for (std::string line; std::getline(lines, line);)
      command += " " + wsi_test::shellQuoted(line);
    if (closed) command += " /bin/sh -c 'exec \"$0\" --cgi >&-'";
    command += " " + wsi_test::shellQuoted(WSI_DEMO) + (closed ? "" : " --cgi") + " <" +
               wsi_test::shellQuoted(dir / "in");
    const wsi_test::Ran ran = wsi_test::runShell(command);
    EXPECT_EQ(std::stoi(row[3]), ran.status);
    EXPECT_EQ(closed ? "" : row[4], ran.out);
    EXPECT_EQ(row[5], ran.err);
  }
}

}  // namespace
