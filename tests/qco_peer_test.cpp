// wsi_peer driving the example host over the connector: the same request files give the same
// response text as over the streams back end, and the tool's failures are clear.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "data_table.hpp"
#include "golden_calls.hpp"
#include "ios_test_util.hpp"

namespace {

using wsi_test::shellQuoted;

const std::string kData = std::string(WSI_TEST_DATA) + "/qco_compare/";

// All cases go as requests on one connection, in frames of 3 bytes.
TEST(QcoPeerTest, SameResponseTextOverStreamsAndOverTheConnector) {
  std::string expected, requests;
  for (const std::string& name : wsi_test::caseNames(kData)) {
    const std::string config = shellQuoted(kData + name + "/request.cfg");
    const std::string posted = kData + name + "/posted.dat";
    const bool has_posted = std::filesystem::exists(posted);
    const wsi_test::Ran streams =
        wsi_test::runShell(shellQuoted(WSI_DEMO) + " --config " + config + " 'streams(0,1,2)' < " +
                           shellQuoted(has_posted ? posted : "/dev/null"));
    ASSERT_EQ(streams.status, 0);
    expected += streams.out;
    requests += " -c " + config + (has_posted ? " -d " + shellQuoted(posted) : "");
  }
  EXPECT_NE(expected.find("Posted data (70000 bytes)"), std::string::npos);  // not two empty texts
  const wsi_test::Ran ran = wsi_test::runShell(shellQuoted(WSI_PEER) + " -f 3" + requests + " -- " +
                                               shellQuoted(WSI_DEMO) + " --connector");
  ASSERT_EQ(ran.status, 0) << ran.err;
  EXPECT_TRUE(ran.out == expected) << "connector:\n" << ran.out << "\nstreams:\n" << expected;
  EXPECT_EQ(ran.err, "");
}

TEST(QcoPeerTest, FailuresEndWithTheirStatusAndAMessage) {
  for (const wsi_test::Row& row : wsi_test::readTable("qco_peer_failures.tsv")) {
    SCOPED_TRACE(row[0] + " (line " + std::to_string(row.line) + ")");
    const wsi_test::Ran ran = wsi_test::runShell(
        "cd " + shellQuoted(kData) + " && PEER=" + shellQuoted(WSI_PEER) + " && " + row[1]);
    EXPECT_EQ(ran.status, std::stoi(row[2]));
    EXPECT_EQ(ran.out, "");
    EXPECT_NE(ran.err.find(row[3]), std::string::npos) << ran.err;
  }
}

}  // namespace
