// Whole exchanges through the C entry points, over the stream and the file back end, compared
// byte for byte with the expected response text. The cases and their format are described in
// tests/data/golden/README.md.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/wsi.hpp>
#include "golden_calls.hpp"
#include "ios_test_util.hpp"

namespace {

namespace fs = std::filesystem;

const fs::path kCases = fs::path(WSI_TEST_DATA) / "golden";

class Golden : public ::testing::TestWithParam<std::string> {
 protected:
  std::string file(const char* name) const { return (kCases / GetParam() / name).string(); }
  void exchange(const std::string& spec, void** args) const {
    wsi_test::runExchange(spec, args, wsi_test::readFile(file("calls")));
  }
};

TEST_P(Golden, StreamsBackEnd) {
  std::ifstream config(file("config"), std::ios_base::binary);
  std::ifstream posted(file("posted"), std::ios_base::binary);
  std::ostringstream output;
  void* args[] = {&config, &posted, &output};
  exchange("streams(0,1,2)", args);
  EXPECT_EQ(wsi_test::readFile(file("expected")), output.str());
}

TEST_P(Golden, FilesBackEnd) {
  wsi_test::TempDir dir;
  const std::string output = dir / "response";
  exchange("files(" + file("config") + "*" + file("posted") + "*" + output + ")", nullptr);
  const std::string own = file("expected.files");
  EXPECT_EQ(wsi_test::readFile(fs::exists(own) ? own : file("expected")),
            wsi_test::readFile(output));
}

INSTANTIATE_TEST_SUITE_P(Cases, Golden, ::testing::ValuesIn(wsi_test::caseNames(kCases)),
                         wsi_test::caseTestName);

}  // namespace
