// The stream and file handles: what the golden exchanges cannot show, i.e. failing output
// streams, header bytes that break lines, and the handle dumps.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include <wsi/ios_handle.hpp>

#include "ios_test_util.hpp"

namespace {

// A stream buffer whose flush always fails.
struct FailingSync : std::stringbuf {
  int sync() override { return -1; }
};

// Stream errors show only in endWrite's result. The destructor has nobody to report to: a
// stream set to throw must not end the process from there.
TEST(IosResponse, StreamFailures) {
  std::istringstream config, posted;
  std::ostringstream failed;
  failed.setstate(std::ios_base::failbit);
  wsi::IosHandle on_failed(config, posted, failed);
  EXPECT_FALSE(on_failed.Response().endWrite());

  FailingSync buffer;
  std::ostream unflushable(&buffer);
  wsi::IosHandle on_unflushable(config, posted, unflushable);
  EXPECT_FALSE(on_unflushable.Response().endWrite());

  FailingSync throwing_buffer;
  std::ostream throwing(&throwing_buffer);
  throwing.exceptions(std::ios_base::badbit);
  { wsi::IosHandle unended(config, posted, throwing); }
  EXPECT_TRUE(throwing.bad());
}

// The handle dump is "[IN]", the request, "[OUT]", the response; "HeadersSent=" sets boolalpha
// for its word only. Header values go out byte for byte, line breaks included: keeping them out
// is the host's task.
TEST(IosHandle, DumpAndHeaderBytes) {
  std::istringstream config, posted;
  std::ostringstream output, dump;
  wsi::IosHandle handle(config, posted, output);
  handle.Response().setHttpStatus(wsi::Http::NotFound);
  handle.Response().setHttpHeader("X-B", "2");
  handle.Response()._setHttpHeader("X-A", "1\r\nInjected: as written");
  dump << std::boolalpha;
  handle._dump(dump);
  dump << true;
  EXPECT_EQ(
      "[IN]\nMethod=INVALID\nHttpURL=\nURL=\nQueryString=\nQuery Argument(s):\n  None.\n"
      "HTTP Header(s):\n  None.\nServer Variable(s):\n  [1] HTTP_URL=\n  [2] QUERY_STRING=\n"
      "  [3] URL=\n[OUT]\nHttpStatus=404 Not Found\nContentType=application/octet-stream\n"
      "ContentEncoding=utf-8\nHeadersSent=false\n"
      "HTTP Header(s):\n  [1] X-B=2\n  [2] X-A=1\r\nInjected: as written\n1",
      dump.str());
  EXPECT_TRUE(handle.Response().endWrite());
  EXPECT_EQ(
      "HTTP/1.1 404 Not Found\nContent-Type: application/octet-stream; charset=utf-8\n"
      "X-B: 2\nX-A: 1\r\nInjected: as written\n\n",
      output.str());
}

TEST(FioHandle, DumpNamesTheFilesFirst) {
  wsi_test::TempDir dir;
  const std::string config = dir / "request.cfg", posted = dir / "posted", out = dir / "out";
  wsi_test::writeFile(config, "REQUEST_METHOD=PUT");
  wsi::FioHandle handle(config.c_str(), posted.c_str(), out.c_str());
  std::ostringstream dump;
  handle._dump(dump);
  const std::string start = "[FILES]\nRequestConfig=" + config + "\nPostedData=" + posted +
                            "\nResponseOutput=" + out + "\n[IN]\nMethod=PUT\n";
  EXPECT_EQ(start, dump.str().substr(0, start.size()));
  EXPECT_NE(std::string::npos, dump.str().find("\n[OUT]\nHttpStatus=-1 Invalid Status\n"));
}

}  // namespace
