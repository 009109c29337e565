// The HTTP vocabulary in both encodings: status texts, method names and method lookup, and the
// response header rules (Content-Type, Content-Length and everything else).
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/http.hpp>
#include <wsi/interface.hpp>
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

typedef std::vector<std::string> Calls;

// A response that records every call the header rules make on it, one text a call.
class RecordingResponse : public wsi::Response {
 public:
  Calls calls;

  void setHttpStatus(Status) override {}
  void setContentType(const std::string& t) override { calls.push_back("type:" + t); }
  void setContentEncoding(const std::string& e) override { calls.push_back("encoding:" + e); }
  void setContentLength(unsigned long n) override {
    calls.push_back("length:" + std::to_string(n));
  }
  void setHttpHeader(const std::string&, const std::string&) override {}
  std::ostream* beginWrite() override { return nullptr; }
  bool endWrite() override { return false; }
  void flush() override {}
  void close() override {}
  void _setHttpHeader(const std::string& n, const std::string& v) override {
    calls.push_back("header:" + n + "=" + v);
  }
  void _dump(std::ostream&) const override {}
};

template <wx::encoding::Encoding E>
Calls callsOf(const std::string& name, const std::string& value) {
  RecordingResponse response;
  response._setHttpHeaderHelper<E>(name, value);
  return response.calls;
}

// The charset split as hosts call it: a member function of a response object, reached here
// through a pointer to member, which a static member would not convert to. The calls are those
// the rules make with its result when `value` holds a ';'; none otherwise.
template <wx::encoding::Encoding E>
Calls splitOf(const std::string& value) {
  bool (wsi::Response::*const split)(const std::string&, std::string&, std::string&) =
      &wsi::Response::_extractContentEncoding<E>;
  RecordingResponse response;
  std::string type, encoding;
  if (!(response.*split)(value, type, encoding)) return Calls();
  return Calls{"type:" + type, "encoding:" + encoding};
}

TEST(HeaderRules, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("header_rules.tsv")) {
    SCOPED_TRACE("header_rules.tsv line " + std::to_string(row.line));
    const Calls expected(row.fields.begin() + 2, row.fields.end());
    EXPECT_EQ(expected, callsOf<host>(row[0], row[1]));
    EXPECT_EQ(expected, callsOf<connector>(row[0], row[1]));
    if (row[0] == "Content-Type" && row[1].find(';') != std::string::npos) {
      EXPECT_EQ(expected, splitOf<host>(row[1]));
      EXPECT_EQ(expected, splitOf<connector>(row[1]));
    }
  }
}

}  // namespace
