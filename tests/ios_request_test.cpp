// The request-configuration reader: line rules, filing rules, odd bytes and sizes, reading the
// posted data.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include <wsi/ios_handle.hpp>

namespace {

// One exchange over in-memory streams.
struct Exchange {
  std::istringstream config;
  std::istringstream posted;
  std::ostringstream output;
  wsi::IosHandle handle;

  explicit Exchange(const std::string& text, const std::string& data = "")
      : config(text), posted(data), handle(config, posted, output) {}
  const wsi::Request& request() const { return handle.Request(); }
};

// What one look-up should find: in table 'v' (server variables), 'h' (headers) or 'q' (query
// arguments); a null `value` means the name must be absent.
struct LookupCase {
  const char* config;
  char table;
  const char* name;
  const char* value;
};

const std::string* lookUp(const wsi::Request& r, char table, const std::string& name) {
  switch (table) {
    case 'v':
      return r.ServerVariables(name);
    case 'h':
      return r.HttpHeaders(name);
    default:
      return r.QueryArg(name);
  }
}

TEST(IosRequest, LineAndFilingRules) {
  const LookupCase cases[] = {
      // Splitting and trimming: the leading blanks of an unquoted value stay.
      {"a = b", 'v', "a", " b"},
      {"a=  b  \t", 'v', "a", "  b"},
      // A value of white space alone is empty, also when the line ends with CR LF.
      {"a=   ", 'v', "a", ""},
      {"a=\r\nb=1", 'v', "a", ""},
      {"  name with blanks  =1", 'v', "name with blanks", "1"},
      {"=x", 'v', "", "x"},
      {"a=b=c", 'v', "a", "b=c"},
      {"no equals sign", 'v', "no equals sign", nullptr},
      // Quotes: one outer pair of the same kind, found after trimming.
      {"a=  \"q\"  ", 'v', "a", "q"},
      {"a='s'", 'v', "a", "s"},
      {"a=''", 'v', "a", ""},
      {"a='", 'v', "a", "'"},
      {"a='x\"", 'v', "a", "'x\""},
      {"a='\"x\"'", 'v', "a", "\"x\""},
      {"a=\"q\"\r", 'v', "a", "q"},
      // Percent-decoding of names and values, after the split.
      {"HTTP%5FURL=/p", 'v', "HTTP_URL", "/p"},
      {"x%3Dy=%3D", 'v', "x=y", "="},
      {"a='%27'", 'v', "a", "'"},
      // "header." names: case-insensitive prefix, two derived variables keeping the prefix.
      {"header.X-Trace=1", 'h', "x-trace", "1"},
      {"header.X-Trace=1", 'v', "HEADER_header.X-Trace", "1"},
      {"header.X-Trace=1", 'v', "HTTP_HEADER.X_TRACE", "1"},
      {"Header.Accept=text/html", 'h', "Accept", "text/html"},
      {"header.=v", 'h', "", "v"},
      {"header.=v", 'v', "HTTP_HEADER.", "v"},
      {"header.Content-Type=text/plain", 'v', "CONTENT_TYPE", "text/plain"},
      {"header.content-length=7", 'v', "CONTENT_LENGTH", "7"},
      {"header.X-A=1\nheader.x-a=2", 'h', "X-A", "2"},
      {"headers.X=1", 'h', "X", nullptr},
      // The five well-known names become headers; no other HTTP_ name does.
      {"CONTENT_TYPE=text/csv", 'h', "Content-Type", "text/csv"},
      {"content_length=3", 'h', "Content-Length", "3"},
      {"HTTP_REFERER=/r", 'h', "Referer", "/r"},
      {"HTTP_USER_AGENT=u", 'h', "User-Agent", "u"},
      {"HTTP_ACCEPT=*/*", 'h', "Accept", "*/*"},
      {"HTTP_COOKIE=c", 'h', "Cookie", nullptr},
      {"HTTP_COOKIE=c", 'v', "http_cookie", "c"},
      // REQUEST_METHOD is stored canonicalised.
      {"REQUEST_METHOD=post", 'v', "REQUEST_METHOD", "POST"},
      {"request_method=Patch", 'v', "REQUEST_METHOD", "INVALID"},
      // Query arguments come from the final QUERY_STRING, decoded once per line and once per pair.
      {"HTTP_URL=/p?a=1%262=3", 'q', "2", "3"},
      {"HTTP_URL=/p?x=%2541", 'q', "x", "A"},
      {"HTTP_URL=/p?a=1\nQUERY_STRING=b=2", 'q', "a", nullptr},
      {"QUERY_STRING=a=+1+&b", 'q', "a", " 1 "},
      {"QUERY_STRING=a=+1+&b", 'q', "b", nullptr},
      // The three URL variables always exist after loading.
      {"", 'v', "QUERY_STRING", ""},
      {"", 'q', "", nullptr},
  };
  for (const LookupCase& c : cases) {
    SCOPED_TRACE(c.config);
    Exchange ex(c.config);
    const std::string* found = lookUp(ex.request(), c.table, c.name);
    if (c.value == nullptr) {
      EXPECT_EQ(nullptr, found);
    } else {
      ASSERT_NE(nullptr, found);
      EXPECT_EQ(c.value, *found);
    }
  }
}

TEST(IosRequest, UrlPrecedenceAndMethod) {
  struct Case {
    const char* config;
    const char* http_url;
    const char* url;
    const char* query;
    wsi::Http::MethodId method;
  } cases[] = {
      {"HTTP_URL=/a?x=1", "/a?x=1", "/a", "x=1", wsi::Http::InvalidMethod},
      {"URL=/u?x=1\nHTTP_URL=/h?y=2", "/h?y=2", "/u", "x=1", wsi::Http::InvalidMethod},
      {"HTTP_URL=/h?y=2\nURL=/u?x=1", "/h?y=2", "/u", "y=2", wsi::Http::InvalidMethod},
      {"QUERY_STRING=q\nHTTP_URL=/h?y", "/h?y", "/h", "q", wsi::Http::InvalidMethod},
      {"HTTP_URL=/one\nHTTP_URL=/two", "/two", "/one", "", wsi::Http::InvalidMethod},
      {"URL=\nHTTP_URL=/h?y", "/h?y", "/h", "y", wsi::Http::InvalidMethod},
      {"HTTP_URL=/a?b?c", "/a?b?c", "/a", "b?c", wsi::Http::InvalidMethod},
      {"REQUEST_METHOD=get\nREQUEST_METHOD=OPTIONS", "", "", "", wsi::Http::Options},
      {"REQUEST_METHOD = get", "", "", "", wsi::Http::InvalidMethod},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.config);
    Exchange ex(c.config);
    EXPECT_EQ(c.http_url, ex.request().HttpURL());
    EXPECT_EQ(c.url, ex.request().URL());
    EXPECT_EQ(c.query, ex.request().QueryString());
    EXPECT_EQ(c.method, ex.request().Method());
  }
}

TEST(IosRequest, TablesIterateInTheirOwnOrder) {
  Exchange ex("header.Zeta=1\nheader.alpha=2\nheader.ZETA=3\nb=1\nA=2\nHTTP_URL=/?z=1&a=2");
  std::string headers, variables, args;
  for (auto it = ex.request().HttpHeaders_begin(); it != ex.request().HttpHeaders_end(); ++it)
    headers += it->first + "=" + it->second + ";";
  for (auto it = ex.request().ServerVariables_begin(); it != ex.request().ServerVariables_end();
       ++it)
    variables += it->first + ";";
  for (auto it = ex.request().QueryArgs_begin(); it != ex.request().QueryArgs_end(); ++it)
    args += it->first + ";";
  EXPECT_EQ("Zeta=3;alpha=2;", headers);
  EXPECT_EQ(
      "A;b;HEADER_header.alpha;HEADER_header.Zeta;HTTP_HEADER.ALPHA;HTTP_HEADER.ZETA;"
      "HTTP_URL;QUERY_STRING;URL;",
      variables);
  EXPECT_EQ("z;a;", args);
}

// Any bytes and any size give a plain result: NUL and lone CR are ordinary bytes, a truncated
// escape stays as written, a last line without a line end still counts.
TEST(IosRequest, OddBytesAndSizes) {
  {
    const char text[] = "a\0b=c\0d\nx=1\ry=2\nt1=%\nt2=%4\nt3=%G1\nlast=1";
    Exchange ex(std::string(text, sizeof text - 1));
    EXPECT_EQ(std::string("c\0d", 3), *ex.request().ServerVariables(std::string("a\0b", 3)));
    EXPECT_EQ("1\ry=2", *ex.request().ServerVariables("x"));
    EXPECT_EQ("%", *ex.request().ServerVariables("t1"));
    EXPECT_EQ("%4", *ex.request().ServerVariables("t2"));
    EXPECT_EQ("%G1", *ex.request().ServerVariables("t3"));
    EXPECT_EQ("1", *ex.request().ServerVariables("last"));
  }
  {
    const std::string big(1 << 20, 'x');
    Exchange ex("HTTP_URL=/p?q=" + big + "\n" + big + "\nend=1");
    EXPECT_EQ(big, *ex.request().QueryArg("q"));
    EXPECT_EQ("1", *ex.request().ServerVariables("end"));
  }
  {
    std::string text;
    for (int i = 0; i < 100000; ++i)
      text += "v" + std::to_string(i) + "=" + std::to_string(i) + "\n";
    Exchange ex(text);
    EXPECT_EQ(100000u + 3u,
              static_cast<std::size_t>(std::distance(ex.request().ServerVariables_begin(),
                                                     ex.request().ServerVariables_end())));
    EXPECT_EQ("99999", *ex.request().ServerVariables("V99999"));
  }
}

TEST(IosRequest, FailedConfigStreamGivesAnEmptyRequest) {
  std::istringstream config("REQUEST_METHOD=GET"), posted;
  config.setstate(std::ios_base::badbit);
  std::ostringstream output;
  wsi::IosHandle handle(config, posted, output);
  EXPECT_EQ(wsi::Http::InvalidMethod, handle.Request().Method());
  EXPECT_EQ("", *handle.Request().ServerVariables("HTTP_URL"));
  EXPECT_EQ(nullptr, handle.Request().ServerVariables("REQUEST_METHOD"));
}

TEST(IosRequest, ReadingThePostedData) {
  Exchange ex("", "body");
  wsi::Request& r = ex.handle.Request();
  std::istream* in = r.beginRead();
  ASSERT_EQ(&ex.posted, in);
  EXPECT_EQ(in, r.beginRead());
  std::string data((std::istreambuf_iterator<char>(*in)), std::istreambuf_iterator<char>());
  EXPECT_EQ("body", data);
  EXPECT_TRUE(r.endRead());  // end of file alone is success
  EXPECT_FALSE(r.endRead());
  EXPECT_EQ(nullptr, r.beginRead());

  Exchange failed("", "");
  failed.posted.setstate(std::ios_base::failbit);
  EXPECT_FALSE(failed.handle.Request().endRead());
  EXPECT_EQ(nullptr, failed.handle.Request().beginRead());
}

}  // namespace
