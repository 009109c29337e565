// The CGI back end: CGI variables as the stream back end reads the same request, CONTENT_LENGTH,
// the posted data, and the whole exchanges of tests/data/cgi_golden (see its README.md).
#include <unistd.h>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <ext/stdio_filebuf.h>
#include <gtest/gtest.h>

#include <wsi/wsi.hpp>
#include "data_table.hpp"
#include "golden_calls.hpp"
#include "ios_test_util.hpp"

namespace {

// The environment array of `text`, one entry a line, over the strings it puts in `entries`.
std::vector<char*> environmentOf(const std::string& text, std::vector<std::string>& entries) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    entries.push_back(line);
  std::vector<char*> envp;
  for (std::string& entry : entries)
    envp.push_back(&entry[0]);
  envp.push_back(nullptr);
  return envp;
}

// What the mapping table compares, as one text a column.
std::vector<std::string> observed(const wsi::Request& r) {
  return {wsi::Http::MethodNameOf<wx::encoding::host>(r.Method()),
          r.HttpURL(),
          r.URL(),
          r.QueryString(),
          wsi_test::entries(r.QueryArgs_begin(), r.QueryArgs_end()),
          wsi_test::entries(r.HttpHeaders_begin(), r.HttpHeaders_end())};
}

TEST(CgiRequest, MapsVariablesAsTheStreamBackEndReadsTheSameRequest) {
  for (const wsi_test::Row& row : wsi_test::readTable("cgi_mapping.tsv")) {
    SCOPED_TRACE(row[0] + " (cgi_mapping.tsv line " + std::to_string(row.line) + ")");
    const std::vector<std::string> expected(row.fields.begin() + 3, row.fields.end());
    std::vector<std::string> entries;
    std::istringstream input;
    const wsi::NameValueList variables = wsi::CgiEnvironment(environmentOf(row[1], entries).data());
    EXPECT_EQ(expected, observed(wsi::CgiStreamRequest(variables, input)));
    const wsi_test::Exchange stream(row[2]);
    EXPECT_EQ(expected, observed(stream.handle.Request()));
  }
}

TEST(CgiRequest, ContentLengthFramesThePostedData) {
  for (const wsi_test::Row& row : wsi_test::readTable("cgi_content_length.tsv")) {
    SCOPED_TRACE("CONTENT_LENGTH '" + row[0] + "'");
    std::istringstream input("abc");
    wsi::CgiStreamRequest request({{"CONTENT_LENGTH", row[0]}}, input);
    EXPECT_EQ(std::stoull(row[2]), request._postedLength());
    EXPECT_EQ(row[1] == "yes", request.beginRead() != nullptr);
    EXPECT_EQ(row[1] == "yes", request.endRead());
  }
}

// From a pipe left open, as web servers may leave it, one read takes CONTENT_LENGTH bytes: no wait
// for an end of file (closing the pipe ends one, so a fault fails rather than hangs), none beyond.
TEST(CgiRequest, ReadsExactlyContentLengthBytesWithoutWaiting) {
  const std::string body(20000, 'b');  // more than one buffer of the request's own
  int fds[2];
  ASSERT_EQ(0, pipe(fds));
  ASSERT_EQ(20000, write(fds[1], body.data(), body.size()));
  __gnu_cxx::stdio_filebuf<char> buf(fds[0], std::ios_base::in);
  std::istream input(&buf);
  wsi::CgiStreamRequest request({{"CONTENT_LENGTH", "20000"}}, input);
  std::future<std::string> read = std::async(std::launch::async, [&request] {
    std::istream* in = request.beginRead();
    std::string got(30000, '\0');
    in->read(&got[0], static_cast<std::streamsize>(got.size()));
    return got.substr(0, static_cast<std::size_t>(in->gcount()));
  });
  const bool finished = read.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  ASSERT_EQ(4, write(fds[1], "NEXT", 4));
  close(fds[1]);
  EXPECT_TRUE(finished) << "the read waited for the end of the input";
  EXPECT_EQ(body, read.get());
  EXPECT_TRUE(request.endRead());  // the read stopped at the end, which is no failure
  EXPECT_FALSE(request.endRead());
  EXPECT_EQ(nullptr, request.beginRead());
  EXPECT_EQ("NEXT", std::string(std::istreambuf_iterator<char>(input), {}));
}

const std::filesystem::path kCases = std::filesystem::path(WSI_TEST_DATA) / "cgi_golden";

class CgiGolden : public ::testing::TestWithParam<std::string> {};

TEST_P(CgiGolden, Exchange) {
  const wsi_test::ScratchLog log(3);
  const std::filesystem::path dir = kCases / GetParam();
  std::vector<std::string> entries;
  std::vector<char*> envp = environmentOf(wsi_test::readFile(dir / "environment"), entries);
  std::ifstream posted(dir / "posted", std::ios_base::binary);
  std::ostringstream output;
  {  // An empty environment file stands for a null environment array.
    wsi::CgiHandle handle(entries.empty() ? nullptr : envp.data(), posted, output);
    void* args[] = {&handle};
    wsi_test::runExchange("handle(0)", args, wsi_test::readFile(dir / "calls"));
  }
  EXPECT_EQ(wsi_test::readFile(dir / "expected"), output.str());
  // The failures logged, one a line as "function: text".
  const std::regex head("^\\S+ err WSI\\[\\d+:\\d+\\] wsi/common/wsicgi:\\d+ ",
                        std::regex::multiline);
  EXPECT_EQ(wsi_test::readFile(dir / "logged"), std::regex_replace(log.text(), head, ""));
}

INSTANTIATE_TEST_SUITE_P(Cases, CgiGolden, ::testing::ValuesIn(wsi_test::caseNames(kCases)),
                         wsi_test::caseTestName);

}  // namespace
