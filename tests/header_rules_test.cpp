// The response header rules: Content-Type, Content-Length and everything else.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include <wsi/interface.hpp>

namespace {

using wx::encoding::connector;
using wx::encoding::host;

// A response that records every call the header rules make on it, one text a call.
class RecordingResponse : public wsi::Response {
 public:
  std::vector<std::string> calls;

  void setHttpStatus(wsi::Http::Status) override {}
  void setContentType(const std::string& type) override {
    calls.push_back("type:" + (type.empty() ? std::string("application/octet-stream") : type));
  }
  void setContentEncoding(const std::string& encoding) override {
    calls.push_back("encoding:" + encoding);
  }
  void setContentLength(unsigned long length) override {
    calls.push_back("length:" + std::to_string(length));
  }
  void setHttpHeader(const std::string& name, const std::string& value) override {
    _setHttpHeaderHelper<host>(name, value);
  }
  std::ostream* beginWrite() override { return nullptr; }
  bool endWrite() override { return false; }
  void flush() override {}
  void close() override {}
  void _setHttpHeader(const std::string& name, const std::string& value) override {
    calls.push_back("header:" + name + "=" + value);
  }
  void _dump(std::ostream&) const override {}
};

struct HeaderCase {
  std::string name;
  std::string value;
  std::vector<std::string> calls;
};

TEST(HeaderRules, Table) {
  typedef std::vector<std::string> Calls;
  const HeaderCase cases[] = {
      {"content-length", "1234", Calls{"length:1234"}},
      {"CONTENT-LENGTH", "", Calls{"length:0"}},
      {"Content-Length", "007", Calls{"length:7"}},
      {"Content-Length", "18446744073709551615", Calls{"length:18446744073709551615"}},
      {"Content-Length", "18446744073709551616", Calls{"length:0"}},  // wraps modulo 2^64
      {"Content-Length", "18446744073709551626", Calls{"length:10"}},
      {"Content-Length", " 12", Calls{}},
      {"Content-Length", "12 ", Calls{}},
      {"Content-Length", "-1", Calls{}},
      {"Content-Length", "+5", Calls{}},
      {"Content-Length", "0x10", Calls{}},
      {"Content-Length", "1a", Calls{}},
      {"Content-Length", "\xb1", Calls{}},
      {"Content-Length", std::string("1\0", 2), Calls{}},
      {"Content-Type", "text/plain", Calls{"type:text/plain", "encoding:"}},
      {"content-TYPE", "", Calls{"type:application/octet-stream", "encoding:"}},
      {"CONTENT-TYPE", "text/plain; charset=ISO-8859-1",
       Calls{"type:text/plain", "encoding:ISO-8859-1"}},
      {"Content-Type", ";charset=utf-8", Calls{"type:application/octet-stream", "encoding:utf-8"}},
      {"Content-Type ", "x", Calls{"header:Content-Type =x"}},
      {"Content_Type", "x", Calls{"header:Content_Type=x"}},
      {"ContentType", "x", Calls{"header:ContentType=x"}},
      {"Content-Types", "x", Calls{"header:Content-Types=x"}},
      {"Content-Lengthy", "5", Calls{"header:Content-Lengthy=5"}},
      {std::string("Content-Type\0", 13), "x",
       Calls{"header:" + std::string("Content-Type\0", 13) + "=x"}},
      {"X-Any", " any value ", Calls{"header:X-Any= any value "}},
      {"", "v", Calls{"header:=v"}},
  };
  for (const HeaderCase& c : cases) {
    RecordingResponse host_response;
    host_response._setHttpHeaderHelper<host>(c.name, c.value);
    EXPECT_EQ(c.calls, host_response.calls) << c.name << ": " << c.value;
    RecordingResponse connector_response;
    connector_response._setHttpHeaderHelper<connector>(c.name, c.value);
    EXPECT_EQ(c.calls, connector_response.calls) << c.name << ": " << c.value;
  }
}

struct CharsetCase {
  std::string value;
  bool found;
  std::string type;
  std::string encoding;
};

TEST(ExtractContentEncoding, Table) {
  const CharsetCase cases[] = {
      {"text/html", false, "untouched", "untouched"},
      {"text/html; charset=utf-8", true, "text/html", "utf-8"},
      {"text/html;CharSet = utf-8; level=1", true, "text/html; level=1", " utf-8"},
      {"text/html; level=1", true, "text/html; level=1", ""},
      {"text/html;", true, "text/html", ""},
      {"text/html; ", true, "text/html; ", ""},
      {"text/html; charset=\"x\"", true, "text/html", "\"x\""},
      {"text/html; charsetx=1", true, "text/html; charsetx=1", ""},
      {"text/html; charset", true, "text/html; charset", ""},
      {"text/html; chars", true, "text/html; chars", ""},
      {"text/html; charset=", true, "text/html", ""},
      {"text/html; charset=a ; charset=b", true, "text/html", "b"},
      {"a; x=1;charset=u; y=2", true, "a; x=1; y=2", "u"},
      {"text/html ; charset=utf-8 ", true, "text/html ", "utf-8 "},
      {"text/html;\tcharset=u", true, "text/html;\tcharset=u", ""},  // only ' ' is a blank
      {std::string("a;charset=u\0;x=1", 16), true, "a", "u"},        // walked as a C string
  };
  for (const CharsetCase& c : cases) {
    std::string type = "untouched", encoding = "untouched";
    EXPECT_EQ(c.found, wsi::Response::_extractContentEncoding<host>(c.value, type, encoding))
        << c.value;
    EXPECT_EQ(c.type, type) << c.value;
    EXPECT_EQ(c.encoding, encoding) << c.value;
    std::string type3 = "untouched", encoding3 = "untouched";
    wsi::Response::_extractContentEncoding<connector>(c.value, type3, encoding3);
    EXPECT_EQ(type, type3) << c.value;
    EXPECT_EQ(encoding, encoding3) << c.value;
  }
}

}  // namespace
