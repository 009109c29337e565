// Whole CGI exchanges: an environment and posted data in, the exact bytes of the response out,
// and the failures logged, for every case of tests/data/cgi_golden (its README.md describes
// them). The handle is lent to the C entry points with "handle(0)", as a host does.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/wsi.hpp>
#include <wx/log.hpp>
#include "golden_calls.hpp"
#include "ios_test_util.hpp"

namespace {

namespace fs = std::filesystem;

const fs::path kCases = fs::path(WSI_TEST_DATA) / "cgi_golden";

// The failure messages of a log file, one a line as "function: text" (the line number left out).
std::string failures(const std::string& log) {
  std::istringstream in(wsi_test::readFile(log));
  const std::regex head("^\\S+ err WSI\\[\\d+:\\d+\\] wsi/common/wsicgi:\\d+ ");
  std::string out, line;
  for (std::smatch m; std::getline(in, line);)
    if (std::regex_search(line, m, head)) out += m.suffix().str() + "\n";
  return out;
}

class CgiGolden : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    wsi::Handle::closeLog();
    wsi::Handle::plog_ = new wx::log::log("WSI");
    wsi::Handle::plog_->file_name = dir_ / "qv_wsi.log";
    wsi::Handle::plog_->enabled = true;
    wsi::Handle::plog_->level = 3;
  }
  void TearDown() override { wsi::Handle::closeLog(); }

  std::string file(const char* name) const { return (kCases / GetParam() / name).string(); }

  wsi_test::TempDir dir_;
};

TEST_P(CgiGolden, Exchange) {
  std::istringstream lines(wsi_test::readFile(file("environment")));
  std::vector<std::string> entries;
  for (std::string line; std::getline(lines, line);)
    entries.push_back(line);
  std::vector<char*> envp;
  for (std::string& entry : entries)
    envp.push_back(&entry[0]);
  envp.push_back(nullptr);

  std::ifstream posted(file("posted"), std::ios_base::binary);
  std::ostringstream output;
  {
    wsi::CgiHandle handle(envp.data(), posted, output);
    void* args[] = {&handle};
    void* context = WSI_CreateContext("handle(0)", 9, args);
    ASSERT_NE(nullptr, context);
    wsi_test::runCalls(*static_cast<wsi::Handle*>(WSI_ContextGetHandle(context)),
                       wsi_test::readFile(file("calls")));
    WSI_DestroyContext(&context);
  }
  EXPECT_EQ(wsi_test::readFile(file("expected")), output.str());
  EXPECT_EQ(wsi_test::readFile(file("logged")), failures(dir_ / "qv_wsi.log"));
}

INSTANTIATE_TEST_SUITE_P(Cases, CgiGolden, ::testing::ValuesIn(wsi_test::caseNames(kCases)),
                         wsi_test::caseTestName);

}  // namespace
