// The request of the CGI back end: CGI variables against the stream back end on the same request,
// the CONTENT_LENGTH rule, the environment split, and the posted data limited to CONTENT_LENGTH
// bytes (never waiting for an end of file, never reading beyond).
#include <fcntl.h>
#include <unistd.h>
#include <chrono>
#include <future>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <ext/stdio_filebuf.h>
#include <gtest/gtest.h>

#include <wsi/wsi.hpp>
#include "data_table.hpp"
#include "ios_test_util.hpp"

namespace {

// The pairs of "NAME=value" lines, each split at its first '='.
wsi::NameValueList variablesOf(const std::string& text) {
  wsi::NameValueList list;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::string::size_type eq = line.find('=');
    list.push_back(std::make_pair(line.substr(0, eq), line.substr(eq + 1)));
  }
  return list;
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

std::string readAll(std::istream& in) {
  return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(CgiRequest, MapsVariablesAsTheStreamBackEndReadsTheSameRequest) {
  for (const wsi_test::Row& row : wsi_test::readTable("cgi_mapping.tsv")) {
    SCOPED_TRACE(row[0] + " (cgi_mapping.tsv line " + std::to_string(row.line) + ")");
    const std::vector<std::string> expected(row.fields.begin() + 3, row.fields.end());
    std::istringstream input;
    const wsi::NameValueList variables = variablesOf(row[1]);
    const wsi::CgiStreamRequest cgi(variables, input);
    EXPECT_EQ(expected, observed(cgi));

    const wsi_test::Exchange stream(row[2]);
    EXPECT_EQ(expected, observed(stream.handle.Request()));

    // Every variable is a server variable, unchanged; a repeated name keeps its last value.
    wsi::NameTable table;
    for (const auto& v : variables)
      table[v.first] = v.second;
    EXPECT_EQ(wsi_test::entries(table.begin(), table.end()),
              wsi_test::entries(cgi.ServerVariables_begin(), cgi.ServerVariables_end()));
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

TEST(CgiRequest, ReadsExactlyContentLengthBytes) {
  const std::string body(100000, 'b');
  std::istringstream input(body + "NEXT");
  wsi::CgiStreamRequest request({{"CONTENT_LENGTH", "100000"}}, input);
  std::istream* in = request.beginRead();
  ASSERT_NE(nullptr, in);
  // One read larger than the body: it stops at the body's end, which is not a failure.
  std::string got(200000, '\0');
  in->read(&got[0], static_cast<std::streamsize>(got.size()));
  got.resize(static_cast<std::size_t>(in->gcount()));
  EXPECT_EQ(body, got);
  EXPECT_TRUE(request.endRead());
  EXPECT_FALSE(request.endRead());
  EXPECT_EQ(nullptr, request.beginRead());
  EXPECT_EQ("NEXT", readAll(input));
}

// A pipe whose write end stays open, as a web server may keep it: the posted data must end after
// CONTENT_LENGTH bytes without waiting for an end of file. Closing the write end afterwards ends a
// read that did wait, so a fault fails the test instead of hanging it.
TEST(CgiRequest, NeverWaitsForEndOfFile) {
  int fds[2];
  ASSERT_EQ(0, pipe(fds));
  ASSERT_EQ(5, write(fds[1], "hello", 5));
  __gnu_cxx::stdio_filebuf<char> buf(fds[0], std::ios_base::in);
  std::istream input(&buf);
  wsi::CgiStreamRequest request({{"CONTENT_LENGTH", "5"}}, input);
  std::future<std::string> read =
      std::async(std::launch::async, [&request] { return readAll(*request.beginRead()); });
  const bool finished = read.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  close(fds[1]);
  EXPECT_TRUE(finished) << "the read waited for the end of the input";
  EXPECT_EQ("hello", read.get());
  EXPECT_TRUE(request.endRead());
}

TEST(CgiEnvironment, SplitsEachEntryAtItsFirstEquals) {
  std::string entries[] = {"A=1", "NOEQUALS", "B==2=", "=empty-name", "C="};
  char* envp[] = {&entries[0][0], &entries[1][0], &entries[2][0],
                  &entries[3][0], &entries[4][0], nullptr};
  const wsi::NameValueList expected = {{"A", "1"}, {"B", "=2="}, {"", "empty-name"}, {"C", ""}};
  EXPECT_EQ(expected, wsi::CgiEnvironment(envp));
  EXPECT_TRUE(wsi::CgiEnvironment(nullptr).empty());
}

}  // namespace
