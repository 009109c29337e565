// The form and cookie parsers over bytes (bodies whole, in two pieces at every split point and one
// byte at a time; hostile bodies), Set-Cookie values, and the form readers over whole requests.
// Several cookies on one response, on every back end: form_page_test.
#include <malloc.h>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/cookies.hpp>
#include <wsi/form_urlencoded.hpp>
#include <wsi/multipart.hpp>
#include <wsi/multipart_form.hpp>
#include "data_table.hpp"
#include "ios_test_util.hpp"

// Heap bytes in use and their peak, across the library as well: the replaced operator new serves
// every allocation of the process.
static std::atomic<long long> g_heap(0);
static std::atomic<long long> g_peak(0);

void* operator new(std::size_t size) {
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  const long long now = g_heap += static_cast<long long>(malloc_usable_size(p));
  if (now > g_peak) g_peak = now;  // the parsers run on the test's one thread
  return p;
}
void operator delete(void* p) noexcept {
  if (p != nullptr) g_heap -= static_cast<long long>(malloc_usable_size(p));
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  operator delete(p);
}

namespace {

// The fields after the first `skip` of a row.
std::vector<std::string> rest(const wsi_test::Row& row, std::size_t skip) {
  return std::vector<std::string>(row.fields.begin() + static_cast<long>(skip), row.fields.end());
}

std::vector<std::string> flattened(const wsi::NameValuePairs& pairs) {
  std::vector<std::string> out;
  for (const auto& pair : pairs) {
    out.push_back(pair.first);
    out.push_back(pair.second);
  }
  return out;
}

const char* statusName(wsi::FormStatus status) {
  static const char* const names[] = {"ok",          "malformed", "too_large",
                                      "unsupported", "refused",   "failed"};
  return names[status];
}

// The pieces a body is fed in: whole, split at `split`, or (split < 0) one byte at a time.
template <class Parser>
bool feedPieces(Parser& parser, const std::string& body, long split) {
  bool ok = true;
  if (split < 0) {
    for (char c : body)
      ok = parser.feed(&c, 1) && ok;
  } else {
    ok = parser.feed(body.data(), static_cast<std::size_t>(split));
    ok = parser.feed(body.data() + split, body.size() - static_cast<std::size_t>(split)) && ok;
  }
  return parser.finish() && ok;
}

TEST(UrlencodedParser, TableAtEverySplit) {
  for (const wsi_test::Row& row : wsi_test::readTable("urlencoded.tsv")) {
    const std::string& body = row[0];
    for (long split = -1; split <= static_cast<long>(body.size()); ++split) {
      wsi::UrlencodedParser parser;
      ASSERT_TRUE(feedPieces(parser, body, split)) << "line " << row.line;
      EXPECT_EQ(flattened(parser.pairs()), rest(row, 1))
          << "line " << row.line << " split " << split;
    }
  }
}

TEST(UrlencodedParser, EachLimitGivesItsError) {
  for (const wsi_test::Row& row : wsi_test::readTable("urlencoded_limits.tsv")) {
    wsi::UrlencodedLimits limits;
    limits.max_body = std::stoul(row[1]);
    limits.max_pairs = std::stoul(row[2]);
    limits.max_item = std::stoul(row[3]);
    for (long split = -1; split <= static_cast<long>(row[0].size()); ++split) {
      wsi::UrlencodedParser parser(limits);
      EXPECT_EQ(feedPieces(parser, row[0], split), row[4].empty()) << "line " << row.line;
      EXPECT_EQ(parser.error(), row[4]) << "line " << row.line << " split " << split;
      EXPECT_EQ(parser.status(), row[4].empty() ? wsi::form_ok : wsi::form_too_large);
    }
  }
}

// Records the parts as the table writes them (name, file name or "-", Content-Type, data) unless
// `record` is false. Refuses its `refuse_at`th call (0: none).
struct Recorder : wsi::MultipartHandler {
  std::vector<std::string> fields;
  int open = 0, calls = 0, refuse_at = 0;
  bool record = true;
  bool partBegin(const wsi::MultipartPart& part) override {
    if (record)
      fields.insert(fields.end(), {part.name, part.has_filename ? part.filename : "-",
                                   part.content_type, std::string()});
    ++open;
    return ++calls != refuse_at;
  }
  bool partData(const char* data, std::size_t size) override {
    EXPECT_GT(size, 0u);
    if (record) fields.back().append(data, size);
    return ++calls != refuse_at;
  }
  bool partEnd() override {
    --open;
    return ++calls != refuse_at;
  }
};

TEST(MultipartParser, TableAtEverySplit) {
  for (const wsi_test::Row& row : wsi_test::readTable("multipart.tsv")) {
    const std::string& body = row[1];
    for (long split = -1; split <= static_cast<long>(body.size()); ++split) {
      Recorder recorder;
      wsi::MultipartParser parser(row[0], recorder);
      const bool ok = feedPieces(parser, body, split);
      EXPECT_EQ(statusName(parser.status()), row[2])
          << "line " << row.line << ": " << parser.error();
      EXPECT_EQ(ok, row[2] == "ok") << "line " << row.line;
      EXPECT_EQ(recorder.fields, rest(row, 3)) << "line " << row.line << " split " << split;
      EXPECT_TRUE(!ok || recorder.open == 0) << "line " << row.line << ": a part was not ended";
    }
  }
}

// The boundary of a Content-Type, or "!" and why there is none; a refusal leaves `boundary`.
std::string boundaryOf(const std::string& content_type) {
  std::string boundary = "unchanged";
  std::string error;
  if (wsi::multipartBoundary(content_type, boundary, error)) return boundary;
  return "!" + error + (boundary == "unchanged" ? "" : ", yet the boundary became " + boundary);
}

TEST(MultipartBoundary, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("multipart_boundary.tsv"))
    EXPECT_EQ(boundaryOf(row[0]), row[1]) << "line " << row.line;
}

// A handler that refuses stops the parser with form_refused, and it is asked nothing more.
TEST(MultipartParser, HandlerRefusalStopsAtEachStep) {
  const std::string body = "--b\r\n\r\ndata\r\n--b\r\n\r\nmore\r\n--b--";
  for (int at = 1; at <= 6; ++at) {
    Recorder refuser;
    refuser.refuse_at = at;
    wsi::MultipartParser parser("b", refuser);
    EXPECT_FALSE(parser.feed(body.data(), body.size())) << "refused at call " << at;
    EXPECT_EQ(parser.status(), wsi::form_refused);
    EXPECT_EQ(refuser.calls, at);
    EXPECT_FALSE(parser.finish());
  }
}

TEST(MultipartHostile, OneErrorAndBoundedMemory) {
  for (const wsi_test::Row& row : wsi_test::readTable("multipart_hostile.tsv")) {
    std::string input = row[1];
    for (unsigned long i = std::stoul(row[3]); i > 0; --i)
      input += row[2];
    input += row[4];
    if (row[0] == "type") {
      EXPECT_EQ(boundaryOf(input), row[5]) << "line " << row.line;
      continue;
    }
    Recorder sink;
    sink.record = false;
    const long long base = g_heap;
    g_peak = base;
    wsi::MultipartParser parser("B", sink);
    for (std::size_t at = 0; at < input.size(); at += 65536)
      parser.feed(input.data() + at, std::min<std::size_t>(65536, input.size() - at));
    parser.finish();
    EXPECT_EQ(statusName(parser.status()) + (": " + parser.error()), row[5]) << "line " << row.line;
    EXPECT_LT(g_peak - base, 64 * 1024) << "line " << row.line;
  }
}

// The form a reader gave, as the table writes it.
std::vector<std::string> listed(const wsi::MultipartForm& form) {
  std::vector<std::string> out;
  for (const auto& field : form.fields)
    out.push_back(field.first + "=" + field.second);
  for (const wsi::FormFile& file : form.files) {
    std::string content = "unreadable";
    EXPECT_TRUE(file.readAll(content));
    EXPECT_EQ(file.size, content.size());
    out.insert(out.end(), {file.field, file.filename, file.content_type,
                           file.fd() < 0 ? "memory" : "spooled", content});
  }
  return out;
}

TEST(ReadForm, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("form_requests.tsv")) {
    wsi_test::TempDir dir;
    wsi::MultipartFormLimits limits;
    limits.temp_dir = dir / "";
    limits.spool_above = 4;
    limits.max_memory = std::stoul(row[4]);
    wsi_test::Exchange x("REQUEST_METHOD=POST\nheader.Content-Type=" + row[1] +
                             "\nheader.Content-Length=" + row[2] + "\n",
                         row[3]);
    wsi::MultipartForm form;
    std::string error;
    const wsi::FormStatus status =
        row[0] == "multipart" ? wsi::readMultipartForm(x.handle.Request(), form, error, limits)
                              : wsi::readUrlencodedForm(x.handle.Request(), form.fields, error);
    EXPECT_EQ(statusName(status), row[5]) << "line " << row.line;
    EXPECT_EQ(error, row[6]) << "line " << row.line;
    EXPECT_EQ(listed(form), rest(row, 7)) << "line " << row.line;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / ""), {}), 0) << row.line;
  }
}

TEST(ParseCookies, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("cookies.tsv"))
    EXPECT_EQ(flattened(wsi::parseCookies(row[0])), rest(row, 1)) << "line " << row.line;
}

// Applies the table's attribute list ("secure,path=/,maxage=10,...") to `cookie`.
void applyAttributes(wsi::SetCookie& cookie, const std::string& list) {
  std::istringstream in(list);
  std::string item;
  while (std::getline(in, item, ',')) {
    const std::string key = item.substr(0, item.find('='));
    const std::string value = item.substr(item.find('=') + 1);  // the whole item when no '='
    if (key == "secure") cookie.secure();
    if (key == "httponly") cookie.httpOnly();
    if (key == "partitioned") cookie.partitioned();
    if (key == "path") cookie.path(value);
    if (key == "domain") cookie.domain(value);
    if (key == "maxage") cookie.maxAge(std::stoll(value));
    if (key == "expires") cookie.expires(static_cast<std::time_t>(std::stoll(value)));
    if (key == "samesite")
      cookie.sameSite(value == "strict" ? wsi::same_site_strict
                      : value == "lax"  ? wsi::same_site_lax
                                        : wsi::same_site_none);
  }
}

TEST(SetCookie, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("set_cookie.tsv")) {
    wsi::SetCookie cookie(row[0], row[1]);
    applyAttributes(cookie, row[2]);
    std::string value = "unchanged";
    std::string error;
    if (cookie.build(value, error)) {
      EXPECT_EQ(value, row[3]) << "line " << row.line << ": " << error;
    } else {
      EXPECT_EQ(error, "the cookie '" + row[0] + "' was not set: " + row[3].substr(1))
          << "line " << row.line;
      EXPECT_EQ(value, "unchanged") << "line " << row.line;
    }
  }
}

// A refused cookie leaves the response as it was: the stream back end writes only the others.
TEST(ResponseCookies, ARefusedCookieSetsNothing) {
  wsi_test::Exchange x("REQUEST_METHOD=GET\n");
  wsi::ResponseCookies cookies(x.handle.Response());
  std::string error;
  EXPECT_TRUE(cookies.add(wsi::SetCookie("a", "2").path("/"), error));
  EXPECT_FALSE(cookies.add(wsi::SetCookie("bad", "x\r\nLocation: /evil"), error));
  EXPECT_TRUE(cookies.add(wsi::SetCookie("c", "3").httpOnly(), error));
  EXPECT_TRUE(x.handle.Response().endWrite());
  EXPECT_NE(x.output.str().find("\nSet-Cookie: a=2; Path=/\nSet-Cookie: c=3; HttpOnly\n\n"),
            std::string::npos)
      << x.output.str();
}

}  // namespace
