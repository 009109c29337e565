// wsi_peer driving the example host over the connector: the same request files give the same
// response text as over the streams back end, and the tool's failures are clear.
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "data_table.hpp"
#include "ios_test_util.hpp"

namespace {

const std::string kData = std::string(WSI_TEST_DATA) + "/qco_compare/";

class QcoPeerTest : public ::testing::Test {
 protected:
  // Runs `command` through the shell; its exit status, with its output and errors in out_, err_.
  int run(const std::string& command) {
    const wsi_test::Ran ran = wsi_test::runShell(command);
    return out_ = ran.out, err_ = ran.err, ran.status;
  }
  wsi_test::TempDir dir_;
  std::string out_, err_;
};

// All cases go as requests on one connection, in whole frames and in frames of 3 bytes.
TEST_F(QcoPeerTest, SameResponseTextOverStreamsAndOverTheConnector) {
  std::string big;
  while (big.size() < 70000)
    big += "0123456789";
  wsi_test::writeFile(dir_ / "big.dat", big);
  const std::string posted[][2] = {{"form-post", kData + "form-post/posted.dat"},
                                   {"get-query", ""},
                                   {"large-post", dir_ / "big.dat"},
                                   {"odd-method", ""}};
  std::string expected, requests;
  for (const auto& c : posted) {
    const std::string config = wsi_test::shellQuoted(kData + c[0] + "/request.cfg");
    ASSERT_EQ(run(wsi_test::shellQuoted(WSI_DEMO) + " --config " + config + " 'streams(0,1,2)' < " +
                  wsi_test::shellQuoted(c[1].empty() ? "/dev/null" : c[1])),
              0);
    expected += out_;
    requests += " -c " + config + (c[1].empty() ? "" : " -d " + wsi_test::shellQuoted(c[1]));
  }
  // Not two empty texts: the big body is among them.
  EXPECT_NE(expected.find("Posted data (70000 bytes)"), std::string::npos);
  const std::string host = " -- " + wsi_test::shellQuoted(WSI_DEMO) + " --connector";
  ASSERT_EQ(run(wsi_test::shellQuoted(WSI_PEER) + requests + host), 0) << err_;
  EXPECT_TRUE(out_ == expected) << "connector:\n" << out_ << "\nstreams:\n" << expected;
  EXPECT_EQ(err_, "");
  ASSERT_EQ(run(wsi_test::shellQuoted(WSI_PEER) + " -f 3 -o " +
                wsi_test::shellQuoted(dir_ / "responses") + requests + host),
            0)
      << err_;
  EXPECT_EQ(out_ + err_, "");
  EXPECT_TRUE(wsi_test::readFile(dir_ / "responses") == expected);
}

TEST_F(QcoPeerTest, FailuresEndWithTheirStatusAndAMessage) {
  wsi_test::writeFile(dir_ / "long.cfg",
                      "REQUEST_METHOD=GET\nheader.X=" + std::string(70000, 'x') + "\n");
  for (const wsi_test::Row& row : wsi_test::readTable("qco_peer_failures.tsv")) {
    SCOPED_TRACE(row[0] + " (line " + std::to_string(row.line) + ")");
    const std::string arguments = std::regex_replace(
        std::regex_replace(row[1], std::regex("\\{data\\}"), wsi_test::shellQuoted(kData)),
        std::regex("\\{dir\\}"), wsi_test::shellQuoted(dir_ / ""));
    EXPECT_EQ(run(wsi_test::shellQuoted(WSI_PEER) + " " + arguments), std::stoi(row[2]));
    EXPECT_EQ(out_, "");
    EXPECT_NE(err_.find(row[3]), std::string::npos) << err_;
  }
}

}  // namespace
