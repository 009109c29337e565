// The request-configuration reader: the line and filing rules of tests/data/request_config.tsv,
// long lines and reading the posted data.
#include <iterator>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <wsi/ios_handle.hpp>
#include "data_table.hpp"
#include "ios_test_util.hpp"

namespace {

// One exchange over in-memory streams.
struct Exchange {
  std::istringstream config, posted;
  std::ostringstream output;
  wsi::IosHandle handle;

  explicit Exchange(const std::string& text, const std::string& data = "")
      : config(text), posted(data), handle(config, posted, output) {}
};

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

}  // namespace
