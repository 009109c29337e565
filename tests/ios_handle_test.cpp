// The stream and file handles: what the golden exchanges cannot show, i.e. failing output
// streams, header bytes that break lines, and the handle dumps.
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <wsi/ios_handle.hpp>
#include "ios_test_util.hpp"

namespace {

// Stream errors show only in endWrite's result.
TEST(IosResponse, StreamFailures) {
  std::istringstream config, posted;
  std::ostringstream failed;
  failed.setstate(std::ios_base::failbit);
  wsi::IosHandle on_failed(config, posted, failed);
  EXPECT_FALSE(on_failed.Response().endWrite());

  wsi_test::FailingSync buffer;
  std::ostream unflushable(&buffer);
  wsi::IosHandle on_unflushable(config, posted, unflushable);
  EXPECT_FALSE(on_unflushable.Response().endWrite());
}

// The file handle's dump is "[FILES]" and the three names, then the stream handle's: "[IN]", the
// request, "[OUT]", the response; "HeadersSent=" sets boolalpha for its word only. Header values
// go out byte for byte, line breaks included: keeping them out is the host's task.
TEST(FioHandle, DumpAndHeaderBytes) {
  wsi_test::TempDir dir;
  const std::string config = dir / "request.cfg", posted = dir / "posted", out = dir / "out";
  wsi_test::writeFile(config, "REQUEST_METHOD=PUT");
  wsi::FioHandle handle(config.c_str(), posted.c_str(), out.c_str());
  handle.Response().setHttpStatus(wsi::Http::NotFound);
  handle.Response().setHttpHeader("X-B", "2");
  handle.Response()._setHttpHeader("X-A", "1\r\nInjected: as written");
  std::ostringstream dump;
  dump << std::boolalpha;
  handle._dump(dump);
  dump << true;
  EXPECT_EQ("[FILES]\nRequestConfig=" + config + "\nPostedData=" + posted +
                "\nResponseOutput=" + out +
                "\n[IN]\nMethod=PUT\nHttpURL=\nURL=\nQueryString=\nQuery Argument(s):\n  None.\n"
                "HTTP Header(s):\n  None.\nServer Variable(s):\n  [1] HTTP_URL=\n"
                "  [2] QUERY_STRING=\n  [3] REQUEST_METHOD=PUT\n  [4] URL=\n[OUT]\n"
                "HttpStatus=404 Not Found\nContentType=application/octet-stream\n"
                "ContentEncoding=utf-8\nHeadersSent=false\n"
                "HTTP Header(s):\n  [1] X-B=2\n  [2] X-A=1\r\nInjected: as written\n1",
            dump.str());
  EXPECT_TRUE(handle.Response().endWrite());
  EXPECT_EQ(
      "HTTP/1.1 404 Not Found\nContent-Type: application/octet-stream; charset=utf-8\n"
      "X-B: 2\nX-A: 1\r\nInjected: as written\n\n",
      wsi_test::readFile(out));
}

}  // namespace
