// The stream response writer, the stream and file handles and their dumps.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

#include <wsi/ios_handle.hpp>

#include "tests/ios_test_util.hpp"

namespace {

// The whole output of one exchange with an empty request, after the handle is gone.
std::string responseText(const std::function<void(wsi::Response&)>& calls) {
  std::istringstream config, posted;
  std::ostringstream output;
  {
    wsi::IosHandle handle(config, posted, output);
    calls(handle.Response());
  }
  return output.str();
}

const char kDefaultBlock[] =
    "HTTP/1.1 -1 Invalid Status\nContent-Type: application/octet-stream; charset=utf-8\n\n";

TEST(IosResponse, HeaderBlock) {
  const struct {
    const char* what;
    std::function<void(wsi::Response&)> calls;
    std::string expected;
  } cases[] = {
      {"no call: written by the destructor", [](wsi::Response&) {}, kDefaultBlock},
      {"only endWrite", [](wsi::Response& r) { EXPECT_TRUE(r.endWrite()); }, kDefaultBlock},
      {"the example block",
       [](wsi::Response& r) {
         r.setHttpStatus(wsi::Http::Ok);
         r.setHttpHeader("X-Trace", "abc");
         r.setContentLength(5);
         *r.beginWrite() << "hello";
       },
       "HTTP/1.1 200 OK\nContent-Type: application/octet-stream; charset=utf-8\n"
       "Content-Length: 5\nX-Trace: abc\n\nhello"},
      {"no charset, unknown status, zero length",
       [](wsi::Response& r) {
         r.setHttpStatus(static_cast<wsi::Http::Status>(999));
         r.setContentType("text/html");
         r.setContentEncoding("");
         r.setContentLength(0);
       },
       "HTTP/1.1 999 Unknown Status\nContent-Type: text/html\nContent-Length: 0\n\n"},
      {"empty type restores the default",
       [](wsi::Response& r) {
         r.setContentType("text/html");
         r.setContentType("");
       },
       kDefaultBlock},
      {"later value, first spelling and position",
       [](wsi::Response& r) {
         r._setHttpHeader("x-a", "1");
         r._setHttpHeader("B", "");
         r._setHttpHeader("X-A", "2\r\nInjected: kept as written");
       },
       "HTTP/1.1 -1 Invalid Status\nContent-Type: application/octet-stream; charset=utf-8\n"
       "x-a: 2\r\nInjected: kept as written\nB: \n\n"},
      {"header rules apply",
       [](wsi::Response& r) {
         r.setHttpHeader("content-type", "text/plain; level=1; charset=latin1");
         r.setHttpHeader("Content-Length", "12");
         r.setHttpHeader("Content-Length", "-1");
       },
       "HTTP/1.1 -1 Invalid Status\nContent-Type: text/plain; level=1; charset=latin1\n"
       "Content-Length: 12\n\n"},
      {"sent once; later settings never reach the output",
       [](wsi::Response& r) {
         std::ostream* first = r.beginWrite();
         r.setHttpStatus(wsi::Http::NotFound);
         r.setHttpHeader("X-Late", "1");
         EXPECT_EQ(first, r.beginWrite());
         r.flush();
         *first << "body";
         r.close();
         EXPECT_FALSE(r.endWrite());
         EXPECT_EQ(nullptr, r.beginWrite());
         r.flush();
         r.close();
       },
       std::string(kDefaultBlock) + "body"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(c.expected, responseText(c.calls));
  }
}

// A stream buffer whose flush always fails.
struct FailingSync : std::stringbuf {
  int sync() override { return -1; }
};

TEST(IosResponse, EndWriteReportsTheStream) {
  std::istringstream config, posted;
  std::ostringstream failed;
  failed.setstate(std::ios_base::failbit);
  wsi::IosHandle on_failed(config, posted, failed);
  EXPECT_FALSE(on_failed.Response().endWrite());
  EXPECT_FALSE(on_failed.Response().endWrite());

  FailingSync buffer;
  std::ostream unflushable(&buffer);
  wsi::IosHandle on_unflushable(config, posted, unflushable);
  EXPECT_FALSE(on_unflushable.Response().endWrite());

  // A stream set to throw: the response destroyed unended keeps the exception to itself.
  FailingSync throwing_buffer;
  std::ostream throwing(&throwing_buffer);
  throwing.exceptions(std::ios_base::badbit);
  { wsi::IosHandle unended(config, posted, throwing); }
  EXPECT_TRUE(throwing.bad());
}

TEST(IosHandle, GivesItsOwnRequestAndResponse) {
  std::istringstream config, posted;
  std::ostringstream output;
  wsi::IosHandle handle(config, posted, output);
  const wsi::Handle& as_const = handle;
  EXPECT_EQ(&handle.Request(), &handle.Request());
  EXPECT_EQ(&handle.Request(), &as_const.Request());
  EXPECT_EQ(&handle.Response(), &as_const.Response());
  EXPECT_EQ("", output.str());  // nothing is written while the handle is built
}

TEST(IosHandle, DumpIsExactAndClearsBoolalpha) {
  std::istringstream config("REQUEST_METHOD=get\nHTTP_URL=/p?b=1&a=2\nheader.Zed=z\nHTTP_ACCEPT=*");
  std::istringstream posted;
  std::ostringstream output;
  wsi::IosHandle handle(config, posted, output);
  handle.Response().setHttpStatus(wsi::Http::NotFound);
  handle.Response().setHttpHeader("X-B", "2");
  handle.Response().setHttpHeader("X-A", "1");

  std::ostringstream dump;
  dump << std::boolalpha;
  handle._dump(dump);
  dump << true;
  EXPECT_EQ(
      "[IN]\nMethod=GET\nHttpURL=/p?b=1&a=2\nURL=/p\nQueryString=b=1&a=2\n"
      "Query Argument(s):\n  [1] b=1\n  [2] a=2\n"
      "HTTP Header(s):\n  [1] Zed=z\n  [2] Accept=*\n"
      "Server Variable(s):\n  [1] HEADER_header.Zed=z\n  [2] HTTP_ACCEPT=*\n"
      "  [3] HTTP_HEADER.ZED=z\n  [4] HTTP_URL=/p?b=1&a=2\n  [5] QUERY_STRING=b=1&a=2\n"
      "  [6] REQUEST_METHOD=GET\n  [7] URL=/p\n"
      "[OUT]\nHttpStatus=404 Not Found\nContentType=application/octet-stream\n"
      "ContentEncoding=utf-8\nHeadersSent=false\n"
      "HTTP Header(s):\n  [1] X-B=2\n  [2] X-A=1\n"
      "1",
      dump.str());

  handle.Response().setContentEncoding("");
  handle.Response().setContentLength(0);
  handle.Response().endWrite();
  std::ostringstream response_dump;
  handle.Response()._dump(response_dump);
  EXPECT_EQ(
      "HttpStatus=404 Not Found\nContentType=application/octet-stream\nContentEncoding=\n"
      "ContentLength=0\nHeadersSent=true\nHTTP Header(s):\n  [1] X-B=2\n  [2] X-A=1\n",
      response_dump.str());
}

TEST(IosHandle, EmptyRequestDump) {
  std::istringstream config, posted;
  std::ostringstream output, dump;
  wsi::IosHandle handle(config, posted, output);
  handle.Request()._dump(dump);
  EXPECT_EQ(
      "Method=INVALID\nHttpURL=\nURL=\nQueryString=\nQuery Argument(s):\n  None.\n"
      "HTTP Header(s):\n  None.\nServer Variable(s):\n  [1] HTTP_URL=\n  [2] QUERY_STRING=\n"
      "  [3] URL=\n",
      dump.str());
}

// --- file back end on real files ----------------------------------------------------------------

struct FileExchange : ::testing::Test {
  wsi_test::TempDir dir;
  std::string config = dir / "request.cfg";
  std::string posted = dir / "posted.dat";
  std::string output = dir / "response.out";

  void SetUp() override {
    wsi_test::writeFile(config, "REQUEST_METHOD=PUT\nURL=/f");
    wsi_test::writeFile(posted, "data");
    wsi_test::writeFile(output, "old content");
  }
};

TEST_F(FileExchange, OutputIsEmptiedAtCreationAndEndedResponseKept) {
  wsi::FioHandle* handle = new wsi::FioHandle(config.c_str(), posted.c_str(), output.c_str());
  EXPECT_EQ("", wsi_test::readFile(output));
  EXPECT_EQ(wsi::Http::Put, handle->Request().Method());
  std::istream* in = handle->Request().beginRead();
  ASSERT_NE(nullptr, in);
  std::string data;
  *in >> data;
  EXPECT_EQ("data", data);
  EXPECT_TRUE(handle->Request().endRead());
  handle->Response().setHttpStatus(wsi::Http::Ok);
  EXPECT_TRUE(handle->Response().endWrite());
  delete handle;
  EXPECT_EQ("HTTP/1.1 200 OK\nContent-Type: application/octet-stream; charset=utf-8\n\n",
            wsi_test::readFile(output));
}

TEST_F(FileExchange, UnendedResponseIsLost) {
  {
    wsi::FioHandle handle(config.c_str(), posted.c_str(), output.c_str());
    handle.Response().setHttpStatus(wsi::Http::Ok);
  }
  EXPECT_EQ("", wsi_test::readFile(output));
}

TEST_F(FileExchange, WhatWasWrittenBeforeDestructionStays) {
  {
    wsi::FioHandle handle(config.c_str(), posted.c_str(), output.c_str());
    *handle.Response().beginWrite() << "unended body";
  }
  EXPECT_EQ(std::string(kDefaultBlock) + "unended body", wsi_test::readFile(output));
}

TEST_F(FileExchange, MissingInputsGiveAnEmptyRequestAndTheOutputIsCreated) {
  const std::string fresh = dir / "fresh.out";
  wsi::FioHandle handle((dir / "missing.cfg").c_str(), (dir / "missing.dat").c_str(),
                        fresh.c_str());
  EXPECT_EQ("", *handle.Request().ServerVariables("URL"));
  EXPECT_EQ(nullptr, handle.Request().ServerVariables("REQUEST_METHOD"));
  EXPECT_FALSE(handle.Request().endRead());
  EXPECT_TRUE(handle.Response().endWrite());
  EXPECT_EQ(kDefaultBlock, wsi_test::readFile(fresh));
}

TEST_F(FileExchange, DumpNamesTheFilesFirst) {
  wsi::FioHandle handle(config.c_str(), posted.c_str(), output.c_str());
  std::ostringstream dump, inner;
  handle._dump(dump);
  EXPECT_EQ(&handle.Request(), &static_cast<const wsi::FioHandle&>(handle).Request());
  handle.Request()._dump(inner);
  EXPECT_EQ("[FILES]\nRequestConfig=" + config + "\nPostedData=" + posted +
                "\nResponseOutput=" + output + "\n[IN]\n" + inner.str(),
            dump.str().substr(0, dump.str().find("[OUT]")));
}

}  // namespace
