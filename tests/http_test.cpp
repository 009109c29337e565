// The HTTP status texts, method names and method lookup, in both encodings.
#include <map>
#include <string>

#include <gtest/gtest.h>

#include <wsi/http.hpp>
#include "data_table.hpp"

namespace {

using namespace wsi::Http;
using wx::encoding::connector;
using wx::encoding::host;

TEST(StatusDesc, EveryCodeFromMinusTenToThousand) {
  std::map<int, std::string> texts;
  for (const wsi_test::Row& row : wsi_test::readTable("status_texts.tsv"))
    texts[std::stoi(row[0])] = row[1];
  for (int code = -10; code <= 1000; ++code) {
    const std::string expected = texts.count(code) ? texts[code] : "Unknown Status";
    EXPECT_EQ(expected, StatusDesc<host>(static_cast<Status>(code))) << code;
    EXPECT_EQ(expected, StatusDesc<connector>(static_cast<Status>(code))) << code;
  }
  EXPECT_STREQ("Unknown Status", StatusDesc<connector>(static_cast<Status>(-2147483647 - 1)));
}

TEST(Methods, NamesAndLookup) {
  for (const wsi_test::Row& row : wsi_test::readTable("method_names.tsv")) {
    const MethodId id = static_cast<MethodId>(std::stoll(row[0]));
    EXPECT_EQ(row[1], MethodNameOf<host>(id)) << "method_names.tsv line " << row.line;
    EXPECT_EQ(row[1], MethodNameOf<connector>(id)) << "method_names.tsv line " << row.line;
  }
  for (const wsi_test::Row& row : wsi_test::readTable("method_ids.tsv")) {
    SCOPED_TRACE("method_ids.tsv line " + std::to_string(row.line));
    EXPECT_EQ(std::stoi(row[1]), MethodIdOf<host>(row[0].c_str()));
    EXPECT_EQ(std::stoi(row[1]), MethodIdOf<connector>(row[0].c_str()));
  }
}

}  // namespace
