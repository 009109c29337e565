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
#include "ios_test_util.hpp"

namespace {

namespace fs = std::filesystem;

const fs::path kCases = fs::path(WSI_TEST_DATA) / "golden";

// Does one line of a case's "calls" text on the exchange of `handle`.
void call(wsi::Handle& handle, const std::string& word, const std::string& arg) {
  wsi::Response& r = handle.Response();
  if (word == "status") {
    r.setHttpStatus(static_cast<wsi::Http::Status>(std::stoi(arg)));
  } else if (word == "type") {
    r.setContentType(arg);
  } else if (word == "encoding") {
    r.setContentEncoding(arg);
  } else if (word == "length") {
    r.setContentLength(std::stoul(arg));
  } else if (word == "header") {
    const std::string::size_type colon = arg.find(':');
    ASSERT_NE(std::string::npos, colon);
    const std::string value = arg.substr(colon + 1);
    r.setHttpHeader(arg.substr(0, colon), value.substr(value.rfind(' ', 0) == 0 ? 1 : 0));
  } else if (word == "begin") {
    r.beginWrite();
  } else if (word == "body") {
    if (std::ostream* os = r.beginWrite()) *os << arg << '\n';
  } else if (word == "request") {
    if (std::ostream* os = r.beginWrite()) handle.Request()._dump(*os);
  } else if (word == "response") {
    if (std::ostream* os = r.beginWrite()) r._dump(*os);
  } else if (word == "posted") {
    std::istream* in = handle.Request().beginRead();
    std::ostream* os = r.beginWrite();
    ASSERT_TRUE(in != nullptr && os != nullptr);
    std::copy(std::istreambuf_iterator<char>(*in), std::istreambuf_iterator<char>(),
              std::ostreambuf_iterator<char>(*os));
    EXPECT_TRUE(handle.Request().endRead());
  } else if (word == "flush") {
    r.flush();
  } else if (word == "end") {
    EXPECT_EQ(arg != "false", r.endWrite());
  } else if (word == "close") {
    r.close();
  } else {
    ADD_FAILURE() << "unknown call " << word;
  }
}

std::vector<std::string> caseNames() {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(kCases))
    if (entry.is_directory()) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

class Golden : public ::testing::TestWithParam<std::string> {
 protected:
  std::string file(const char* name) const { return (kCases / GetParam() / name).string(); }

  // Creates the context, runs the calls and destroys the context; the handle must exist.
  void exchange(const std::string& spec, void** args) const {
    void* context = WSI_CreateContext(spec.data(), spec.size(), args);
    wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
    ASSERT_NE(nullptr, handle);
    std::istringstream lines(wsi_test::readFile(file("calls")));
    for (std::string line; std::getline(lines, line);) {
      if (line.empty() || line[0] == '#') continue;
      SCOPED_TRACE(line);
      const std::string::size_type blank = std::min(line.find(' '), line.size());
      call(*handle, line.substr(0, blank), line.substr(std::min(blank + 1, line.size())));
    }
    WSI_DestroyContext(&context);
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

INSTANTIATE_TEST_SUITE_P(Cases, Golden, ::testing::ValuesIn(caseNames()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           std::string name = info.param;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

}  // namespace
