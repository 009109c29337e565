// The stream and file handles: the request-configuration reader (the line and filing rules of
// tests/data/request_config.tsv, long lines, reading the posted data), and what the golden
// exchanges cannot show: failing output streams, header bytes that break lines, the handle dumps.
#include <iterator>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <wsi/ios_handle.hpp>
#include "data_table.hpp"
#include "ios_test_util.hpp"

namespace {

using wsi_test::Exchange;

// The answer to a table row's question (see the table's head), "(absent)" for a missing name.
std::string answer(const wsi::Request& r, const std::string& kind, const std::string& name) {
  if (kind == "get") {
    if (name == "Method") return wsi::Http::MethodNameOf<wx::encoding::host>(r.Method());
    if (name == "vars")
      return wsi_test::entries(r.ServerVariables_begin(), r.ServerVariables_end());
    if (name == "headers") return wsi_test::entries(r.HttpHeaders_begin(), r.HttpHeaders_end());
    if (name == "args") return wsi_test::entries(r.QueryArgs_begin(), r.QueryArgs_end());
    return name == "URL" ? r.URL() : name == "HttpURL" ? r.HttpURL() : r.QueryString();
  }
  const std::string* found = kind == "var"      ? r.ServerVariables(name)
                             : kind == "header" ? r.HttpHeaders(name)
                                                : r.QueryArg(name);
  return found == nullptr ? "(absent)" : *found;
}

TEST(IosRequest, ConfigurationTable) {
  for (const wsi_test::Row& row : wsi_test::readTable("request_config.tsv")) {
    SCOPED_TRACE("request_config.tsv line " + std::to_string(row.line));
    Exchange ex(row[0]);
    EXPECT_EQ(row[3], answer(ex.handle.Request(), row[1], row[2]));
  }
}

// Lines have no length limit: a 1 MiB line is read whole and the lines after it still count.
TEST(IosRequest, LongLinesAndManyLines) {
  const std::string big(1 << 20, 'x');
  Exchange ex("HTTP_URL=/p?q=" + big + "\n" + big + "\nend=1");
  EXPECT_EQ(big, *ex.handle.Request().QueryArg("q"));
  EXPECT_EQ("1", *ex.handle.Request().ServerVariables("end"));

  std::string lines;
  for (int i = 0; i < 100000; ++i)
    lines += "v" + std::to_string(i) + "=" + std::to_string(i) + "\n";
  Exchange many(lines);
  const wsi::Request& r = many.handle.Request();
  EXPECT_EQ(100003, std::distance(r.ServerVariables_begin(), r.ServerVariables_end()));
  EXPECT_EQ("99999", *r.ServerVariables("V99999"));
}

TEST(IosRequest, ReadingThePostedData) {
  Exchange ex("", "body");
  wsi::Request& r = ex.handle.Request();
  std::istream* in = r.beginRead();
  ASSERT_EQ(&ex.posted, in);
  EXPECT_EQ(in, r.beginRead());
  std::string data;
  *in >> data;
  ASSERT_TRUE(in->eof());
  EXPECT_TRUE(r.endRead());  // end of file alone is success
  EXPECT_FALSE(r.endRead());
  EXPECT_EQ(nullptr, r.beginRead());

  Exchange failed("", "");
  failed.posted.setstate(std::ios_base::failbit);
  EXPECT_FALSE(failed.handle.Request().endRead());
  EXPECT_EQ(nullptr, failed.handle.Request().beginRead());
}

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
