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

// The failure messages of a log, one a line as "function: text" (the line number left out).
std::string failures(const std::string& log) {
  std::istringstream in(log);
  const std::regex head("^\\S+ err WSI\\[\\d+:\\d+\\] wsi/common/wsicgi:\\d+ ");
  std::string out, line;
  for (std::smatch m; std::getline(in, line);)
    if (std::regex_search(line, m, head)) out += m.suffix().str() + "\n";
  return out;
}

class CgiGolden : public ::testing::TestWithParam<std::string> {};

TEST_P(CgiGolden, Exchange) {
  const wsi_test::ScratchLog log(3);
  const fs::path dir = kCases / GetParam();
  std::istringstream lines(wsi_test::readFile(dir / "environment"));
  std::vector<std::string> entries;
  for (std::string line; std::getline(lines, line);)
    entries.push_back(line);
  std::vector<char*> envp;
  for (std::string& entry : entries)
    envp.push_back(&entry[0]);
  envp.push_back(nullptr);

  std::ifstream posted(dir / "posted", std::ios_base::binary);
  std::ostringstream output;
  {  // An empty environment file stands for a null environment array.
    wsi::CgiHandle handle(entries.empty() ? nullptr : envp.data(), posted, output);
    void* args[] = {&handle};
    wsi_test::runExchange("handle(0)", args, wsi_test::readFile(dir / "calls"));
  }
  EXPECT_EQ(wsi_test::readFile(dir / "expected"), output.str());
  EXPECT_EQ(wsi_test::readFile(dir / "logged"), failures(log.text()));
}

INSTANTIATE_TEST_SUITE_P(Cases, CgiGolden, ::testing::ValuesIn(wsi_test::caseNames(kCases)),
                         wsi_test::caseTestName);

}  // namespace
