// The request of the CGI back end: CGI variables against the stream back end on the same request,
// the CONTENT_LENGTH rule, and the posted data limited to CONTENT_LENGTH bytes.
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

TEST(CgiRequest, MapsVariablesAsTheStreamBackEndReadsTheSameRequest) {
  for (const wsi_test::Row& row : wsi_test::readTable("cgi_mapping.tsv")) {
    SCOPED_TRACE(row[0] + " (cgi_mapping.tsv line " + std::to_string(row.line) + ")");
    const std::vector<std::string> expected(row.fields.begin() + 3, row.fields.end());
    std::istringstream input;
    EXPECT_EQ(expected, observed(wsi::CgiStreamRequest(variablesOf(row[1]), input)));

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

// A pipe whose write end stays open, as a web server may keep it: the posted data end after
// CONTENT_LENGTH bytes, even for one read that asks for more, without waiting for an end of file
// and without reading beyond. Closing the write end ends a read that did wait, so a fault fails
// the test instead of hanging it.
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

}  // namespace
