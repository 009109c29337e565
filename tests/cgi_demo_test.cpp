// wsi_demo --cgi as a web server runs it: an environment, standard input and output, and the
// message on standard error when a response cannot be completed.
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "data_table.hpp"
#include "ios_test_util.hpp"

namespace {

class CgiDemoTest : public ::testing::Test {
 protected:
  // Runs wsi_demo --cgi with only the "NAME=value" lines of `environment` and `input` on standard
  // input (and standard output closed when `closedOutput`); its exit status, with its output and
  // errors in out_ and err_.
  int run(const std::string& environment, const std::string& input, bool closedOutput = false) {
    wsi_test::writeFile(dir_ / "in", input);
    std::string command = "env -i";
    std::istringstream lines(environment);
    for (std::string line; std::getline(lines, line);)
      command += " " + wsi_test::shellQuoted(line);
    if (closedOutput) command += " /bin/sh -c 'exec \"$0\" --cgi >&-'";
    command += " " + wsi_test::shellQuoted(WSI_DEMO) + (closedOutput ? "" : " --cgi") + " <" +
               wsi_test::shellQuoted(dir_ / "in");
    const wsi_test::Ran ran = wsi_test::runShell(command);
    return out_ = ran.out, err_ = ran.err, ran.status;
  }
  wsi_test::TempDir dir_;
  std::string out_, err_;
};

TEST_F(CgiDemoTest, AnswersMethodsAndRoutes) {
  for (const wsi_test::Row& row : wsi_test::readTable("cgi_demo.tsv")) {
    SCOPED_TRACE(row[0] + " (cgi_demo.tsv line " + std::to_string(row.line) + ")");
    EXPECT_EQ(std::stoi(row[3]), run(row[1], row[2]));
    EXPECT_EQ(row[4], out_);
    EXPECT_EQ("", err_);
  }
}

// The demo page for HEAD: the headers that the same request gets with a body, Content-Length
// included, and no body. POST without posted data stands for GET: its page names a method of the
// same length.
TEST_F(CgiDemoTest, HeadGetsTheHeadersOfGet) {
  ASSERT_EQ(0, run("REQUEST_METHOD=POST\nREQUEST_URI=/page", ""));
  const std::string get = out_;
  ASSERT_EQ(0, run("REQUEST_METHOD=HEAD\nREQUEST_URI=/page", ""));
  const std::string::size_type end = get.find("\r\n\r\n");
  ASSERT_NE(std::string::npos, end);
  EXPECT_EQ(get.substr(0, end + 4), out_);
}

TEST_F(CgiDemoTest, TenMegabyteResponse) {
  ASSERT_EQ(0, run("REQUEST_METHOD=GET\nREQUEST_URI=/bytes?n=10485760", ""));
  const std::string head =
      "Status: 200 OK\r\nContent-Type: text/plain\r\n"
      "Content-Length: 10485760\r\n\r\n";
  ASSERT_EQ(head.size() + 10485760, out_.size());
  EXPECT_EQ(head, out_.substr(0, head.size()));
  EXPECT_EQ(std::string::npos, out_.find_first_not_of('x', head.size()));
}

TEST_F(CgiDemoTest, ReportsAResponseThatCannotBeCompleted) {
  EXPECT_EQ(1, run("REQUEST_METHOD=GET\nREQUEST_URI=/bytes?n=100", "", true));
  EXPECT_EQ("wsi_demo: response not completed\n", err_);
}

}  // namespace
