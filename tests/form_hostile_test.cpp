// The form readers over whole requests, their limits, and hostile bodies: each gives one clear
// error, costs memory bounded by the limits whatever the body, and leaves nothing behind.
#include <malloc.h>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <new>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <wsi/form_urlencoded.hpp>
#include <wsi/ios_handle.hpp>
#include <wsi/multipart.hpp>
#include <wsi/multipart_form.hpp>
#include "ios_test_util.hpp"

// Heap bytes in use and their peak, counted across the library as well (the replaced operator new
// serves every allocation of the process).
static std::atomic<long long> g_heap(0);
static std::atomic<long long> g_peak(0);

void* operator new(std::size_t size) {
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  const long long now = g_heap += static_cast<long long>(malloc_usable_size(p));
  long long peak = g_peak.load();
  while (now > peak && !g_peak.compare_exchange_weak(peak, now)) {
  }
  return p;
}
void operator delete(void* p) noexcept {
  if (p == nullptr) return;
  g_heap -= static_cast<long long>(malloc_usable_size(p));
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  operator delete(p);
}

namespace {

// Discards every part.
struct Sink : wsi::MultipartHandler {
  bool partBegin(const wsi::MultipartPart&) override { return true; }
  bool partData(const char*, std::size_t) override { return true; }
  bool partEnd() override { return true; }
};

std::string repeated(const std::string& piece, std::size_t times) {
  std::string out;
  out.reserve(piece.size() * times);
  for (std::size_t i = 0; i < times; ++i)
    out += piece;
  return out;
}

struct Hostile {
  const char* what;
  std::string body;
  wsi::FormStatus status;
  const char* error;
};

// Feeds `body` in 64 KiB pieces; returns the peak of heap growth while it ran.
long long parse(wsi::MultipartParser& parser, const std::string& body) {
  const long long base = g_heap.load();
  g_peak = base;
  for (std::size_t at = 0; at < body.size(); at += 65536)
    parser.feed(body.data() + at, std::min<std::size_t>(65536, body.size() - at));
  parser.finish();
  return g_peak.load() - base;
}

TEST(MultipartHostile, OneErrorAndBoundedMemory) {
  const std::size_t ten_mb = 10u << 20;
  const std::string open = "--B\r\nContent-Disposition: form-data; name=\"x\"\r\n\r\n";
  const Hostile cases[] = {
      {"a million empty parts", "--B" + repeated("\r\n\r\n\r\n--B", 1000000) + "--",
       wsi::form_too_large, "the body holds more than 1000 parts"},
      {"10 MB of CR in a part", open + std::string(ten_mb, '\r'), wsi::form_malformed,
       "the body ended inside part 1, before its closing boundary"},
      {"10 MB of '-' in a part", open + std::string(ten_mb, '-'), wsi::form_malformed,
       "the body ended inside part 1, before its closing boundary"},
      {"10 MB of CR LF '-' in a part", open + repeated("\r\n-", ten_mb / 3), wsi::form_malformed,
       "the body ended inside part 1, before its closing boundary"},
      {"10 MB of '-' before any boundary", std::string(ten_mb, '-'), wsi::form_malformed,
       "the body holds no boundary line \"--B\""},
      {"a boundary that never comes", std::string(ten_mb, 'a'), wsi::form_malformed,
       "the body holds no boundary line \"--B\""},
      {"a part header that never ends", "--B\r\nX: " + std::string(ten_mb, 'a'),
       wsi::form_too_large, "the header block of part 1 is longer than 8192 bytes"},
      {"a body above the limit", open + std::string(65u << 20, 'a'), wsi::form_too_large,
       "the body is larger than the limit of 67108864 bytes"},
  };
  for (const Hostile& c : cases) {
    Sink sink;
    wsi::MultipartParser parser("B", sink);
    const long long peak = parse(parser, c.body);
    EXPECT_EQ(parser.status(), c.status) << c.what;
    EXPECT_EQ(parser.error(), c.error) << c.what;
    EXPECT_LT(peak, 64 * 1024) << c.what << ": heap grew by " << peak << " bytes";
  }
}

TEST(MultipartHostile, ThousandParameters) {
  std::string type = "multipart/form-data";
  for (int i = 0; i < 1000; ++i)
    type += "; p" + std::to_string(i) + "=\"" + std::string(60, 'v') + "\"";
  std::string boundary;
  std::string error;
  EXPECT_TRUE(wsi::multipartBoundary(type + "; boundary=last", boundary, error)) << error;
  EXPECT_EQ(boundary, "last");
  EXPECT_FALSE(wsi::multipartBoundary(type + repeated("; boundary=b", 1000), boundary, error));
  EXPECT_EQ(error, "the Content-Type gives the boundary parameter more than once");
}

// The request configuration of a POST whose headers give `type` and `length`.
std::string post(const std::string& type, std::size_t length) {
  return "REQUEST_METHOD=POST\nheader.Content-Type=" + type +
         "\nheader.Content-Length=" + std::to_string(length) + "\n";
}

TEST(ReadUrlencodedForm, Request) {
  const std::string body = "b=2&a=x+y&b=%33";
  wsi_test::Exchange ok(post("application/x-www-form-urlencoded; charset=utf-8", body.size()),
                        body + "&ignored");
  wsi::NameValuePairs pairs;
  std::string error;
  ASSERT_EQ(wsi::readUrlencodedForm(ok.handle.Request(), pairs, error), wsi::form_ok) << error;
  EXPECT_EQ(pairs, (wsi::NameValuePairs{{"b", "2"}, {"a", "x y"}, {"b", "3"}}));

  wsi_test::Exchange short_body(post("application/x-www-form-urlencoded", body.size() + 5), body);
  EXPECT_EQ(wsi::readUrlencodedForm(short_body.handle.Request(), pairs, error),
            wsi::form_malformed);
  EXPECT_EQ(error, "the posted data ended after 15 of the 20 bytes its Content-Length announced");
  EXPECT_TRUE(pairs.empty());

  wsi_test::Exchange other(post("text/plain", body.size()), body);
  EXPECT_EQ(wsi::readUrlencodedForm(other.handle.Request(), pairs, error), wsi::form_unsupported);
  EXPECT_EQ(error,
            "the request's Content-Type is 'text/plain', not application/x-www-form-urlencoded");
}

// The files of `dir`: anonymous temporary files leave none.
long entries(const std::string& dir) {
  return std::distance(std::filesystem::directory_iterator(dir), {});
}

TEST(ReadMultipartForm, SpoolsLargeFilesAndDropsEverythingOnALimit) {
  wsi_test::TempDir dir;
  const std::string big(200000, 'z');
  const std::string body =
      "--q\r\nContent-Disposition: form-data; name=\"t\"\r\n\r\nhello\r\n"
      "--q\r\nContent-Disposition: form-data; name=\"small\"; filename=\"s.txt\"\r\n\r\nabc\r\n"
      "--q\r\nContent-Disposition: form-data; name=\"big\"; filename=\"../../etc/passwd\"\r\n"
      "Content-Type: application/octet-stream\r\n\r\n" +
      big + "\r\n--q--\r\n";
  wsi::MultipartFormLimits limits;
  limits.temp_dir = dir / "";
  wsi_test::Exchange ok(post("multipart/form-data; boundary=q", body.size()), body);
  wsi::MultipartForm form;
  std::string error;
  ASSERT_EQ(wsi::readMultipartForm(ok.handle.Request(), form, error, limits), wsi::form_ok)
      << error;
  EXPECT_EQ(form.fields, (wsi::NameValuePairs{{"t", "hello"}}));
  ASSERT_EQ(form.files.size(), 2u);
  EXPECT_EQ(form.files[0].fd(), -1);
  EXPECT_EQ(form.files[0].data, "abc");
  EXPECT_EQ(form.files[1].filename, "../../etc/passwd");
  EXPECT_EQ(form.files[1].size, big.size());
  EXPECT_GE(form.files[1].fd(), 0);
  std::string content;
  ASSERT_TRUE(form.files[1].readAll(content));
  EXPECT_EQ(content, big);
  EXPECT_EQ(entries(dir / ""), 0);

  // The same body with too little memory for the fields fails as a whole.
  limits.max_memory = 7;
  wsi_test::Exchange limited(post("multipart/form-data; boundary=q", body.size()), body);
  EXPECT_EQ(wsi::readMultipartForm(limited.handle.Request(), form, error, limits),
            wsi::form_too_large);
  EXPECT_EQ(error, "the form's fields take more than 7 bytes of memory");
  EXPECT_TRUE(form.fields.empty() && form.files.empty());

  limits.max_memory = 1 << 20;
  wsi_test::Exchange short_body(post("multipart/form-data; boundary=q", body.size() + 1), body);
  EXPECT_EQ(wsi::readMultipartForm(short_body.handle.Request(), form, error, limits),
            wsi::form_malformed);
  EXPECT_EQ(error,
            "the posted data ended after 200261 of the 200262 bytes its Content-Length "
            "announced");
  EXPECT_EQ(entries(dir / ""), 0);
  wsi_test::Exchange no_boundary(post("multipart/form-data", body.size()), body);
  EXPECT_EQ(wsi::readMultipartForm(no_boundary.handle.Request(), form, error, limits),
            wsi::form_malformed);
  EXPECT_EQ(error, "the Content-Type gives no boundary");
}

}  // namespace
