// Speed of the form helpers: multipart bodies of few large parts and of many small fields, a
// URL-encoded body and a Cookie header, each beside cgicc's parsing of the same bytes and
// memchr over them (the floor: any parser must at least look at every byte); and the cost of
// multipart bodies, hostile ones included, as they grow tenfold.
#include <algorithm>
#include <cstring>
#include <map>
#include <string>

#include <benchmark/benchmark.h>
#include <cgicc/CgiInput.h>
#include <cgicc/Cgicc.h>

#include <wsi/cookies.hpp>
#include <wsi/form_urlencoded.hpp>
#include <wsi/multipart.hpp>
#include <wsi/multipart_form.hpp>

namespace {

const char kBoundary[] = "----wsiBenchBoundary7MA4YWxkTrZu0gW";
const std::size_t kPiece = 64 * 1024;  // what the form readers read at a time

// Bytes that look like an upload: pseudo-random, CR LF included now and then.
std::string uploadBytes(std::size_t size, unsigned seed) {
  std::string out(size, '\0');
  for (std::size_t i = 0; i < size; ++i) {
    seed = seed * 1103515245u + 12345u;
    out[i] = static_cast<char>(seed >> 16);
  }
  return out;
}

std::string partHead(const std::string& name, const char* filename) {
  std::string head =
      std::string("--") + kBoundary + "\r\nContent-Disposition: form-data; name=\"" + name + "\"";
  if (filename != nullptr) head += std::string("; filename=\"") + filename + "\"";
  if (filename != nullptr) head += "\r\nContent-Type: application/octet-stream";
  return head + "\r\n\r\n";
}

// `parts` files of `size` / `parts` bytes each.
std::string largeParts(std::size_t size, int parts) {
  std::string body;
  body.reserve(size + 1024);
  for (int i = 0; i < parts; ++i) {
    body += partHead("file" + std::to_string(i), "upload.bin");
    body += uploadBytes(size / static_cast<std::size_t>(parts), static_cast<unsigned>(i + 1));
    body += "\r\n";
  }
  return body + "--" + kBoundary + "--\r\n";
}

// Text fields of about 16 bytes each, up to `size` bytes of body.
std::string smallFields(std::size_t size) {
  std::string body;
  body.reserve(size + 1024);
  for (int i = 0; body.size() < size; ++i)
    body += partHead("field" + std::to_string(i), nullptr) + "value of field " + std::to_string(i) +
            "\r\n";
  return body + "--" + kBoundary + "--\r\n";
}

// A body whose one part holds `size` bytes of `fill` and never ends.
std::string hostileRun(std::size_t size, char fill) {
  return partHead("x", nullptr) + std::string(size, fill);
}

const std::string& body(const std::string& key) {
  static std::map<std::string, std::string> bodies;
  std::string& b = bodies[key];
  if (!b.empty()) return b;
  if (key == "large") b = largeParts(100u << 20, 4);
  if (key == "small") b = smallFields(10u << 20);
  if (key == "urlencoded") {
    for (int i = 0; b.size() < (1u << 20); ++i)
      b += (i ? "&" : "") + std::string("name") + std::to_string(i) + "=some+value%2C+" +
           std::to_string(i);
  }
  if (key == "cookie") {
    for (int i = 0; b.size() < 4096; ++i)
      b += (i ? "; " : "") + std::string("cookie") + std::to_string(i) + "=v" + std::to_string(i);
  }
  return b;
}

// Counts what it is given and keeps nothing: the parser alone.
struct Counter : wsi::MultipartHandler {
  std::size_t parts = 0;
  std::size_t bytes = 0;
  bool partBegin(const wsi::MultipartPart&) override { return ++parts > 0; }
  bool partData(const char*, std::size_t size) override { return (bytes += size) > 0; }
  bool partEnd() override { return true; }
};

wsi::MultipartLimits bigLimits() {
  wsi::MultipartLimits limits;
  limits.max_parts = 10000000;
  limits.max_body = 1ull << 40;
  return limits;
}

std::size_t parseMultipart(const std::string& b) {
  Counter counter;
  wsi::MultipartParser parser(kBoundary, counter, bigLimits());
  for (std::size_t at = 0; at < b.size(); at += kPiece)
    parser.feed(b.data() + at, std::min(kPiece, b.size() - at));
  parser.finish();
  return counter.bytes + counter.parts;
}

void BM_Multipart(benchmark::State& state, const char* key) {
  const std::string& b = body(key);
  for (auto _ : state)
    benchmark::DoNotOptimize(parseMultipart(b));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * b.size()));
}

// The parser with the collector that keeps every field and file, as cgicc does.
void BM_MultipartForm(benchmark::State& state, const char* key) {
  const std::string& b = body(key);
  wsi::MultipartFormLimits limits;
  limits.parser = bigLimits();
  limits.max_memory = std::size_t(1) << 40;
  limits.spool_above = limits.max_memory;
  for (auto _ : state) {
    wsi::MultipartForm form;
    wsi::MultipartFormCollector collector(form, limits);
    wsi::MultipartParser parser(kBoundary, collector, limits.parser);
    for (std::size_t at = 0; at < b.size(); at += kPiece)
      parser.feed(b.data() + at, std::min(kPiece, b.size() - at));
    parser.finish();
    benchmark::DoNotOptimize(form.fields.size() + form.files.size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * b.size()));
}

// Counts the bytes `c` in `b` with memchr from one to the next: the floor of a parser that
// looks for `c`.
std::size_t memchrCount(const std::string& b, char c) {
  std::size_t found = 0;
  const char* p = b.data();
  const char* end = p + b.size();
  while ((p = static_cast<const char*>(std::memchr(p, c, end - p))) != nullptr) {
    ++found;
    ++p;
  }
  return found;
}

// The floor of a multipart body: memchr from CR to CR, as the delimiter search must go.
void BM_Memchr(benchmark::State& state, const char* key) {
  const std::string& b = body(key);
  for (auto _ : state)
    benchmark::DoNotOptimize(memchrCount(b, '\r'));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * b.size()));
}

// cgicc reads a POST body through its input object, as it would from standard input.
class CgiccInput : public cgicc::CgiInput {
 public:
  CgiccInput(const std::string& method, const std::string& type, const std::string& body,
             const std::string& cookie)
      : method_(method), type_(type), body_(body), cookie_(cookie), at_(0) {}
  size_t read(char* data, size_t length) override {
    const size_t n = std::min(length, body_.size() - at_);
    std::memcpy(data, body_.data() + at_, n);
    at_ += n;
    return n;
  }
  std::string getenv(const char* name) override {
    const std::string var(name);
    if (var == "REQUEST_METHOD") return method_;
    if (var == "CONTENT_TYPE") return type_;
    if (var == "CONTENT_LENGTH") return method_ == "POST" ? std::to_string(body_.size()) : "";
    if (var == "HTTP_COOKIE") return cookie_;
    return std::string();
  }

 private:
  std::string method_, type_;
  const std::string& body_;
  std::string cookie_;
  size_t at_;
};

void BM_Cgicc(benchmark::State& state, const char* key) {
  const std::string& b = body(key);
  const std::string type = std::string(key) == "urlencoded"
                               ? "application/x-www-form-urlencoded"
                               : std::string("multipart/form-data; boundary=") + kBoundary;
  for (auto _ : state) {
    CgiccInput input("POST", type, b, "");
    cgicc::Cgicc cgi(&input);
    benchmark::DoNotOptimize(cgi.getElements().size() + cgi.getFiles().size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * b.size()));
}

void BM_Urlencoded(benchmark::State& state) {
  const std::string& b = body("urlencoded");
  wsi::UrlencodedLimits limits;
  limits.max_pairs = 1000000;
  for (auto _ : state) {
    wsi::UrlencodedParser parser(limits);
    for (std::size_t at = 0; at < b.size(); at += kPiece)
      parser.feed(b.data() + at, std::min(kPiece, b.size() - at));
    parser.finish();
    benchmark::DoNotOptimize(parser.pairs().size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * b.size()));
}

// The floor for a URL-encoded body: memchr from '&' to '&'.
void BM_UrlencodedMemchr(benchmark::State& state) {
  const std::string& b = body("urlencoded");
  for (auto _ : state)
    benchmark::DoNotOptimize(memchrCount(b, '&'));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * b.size()));
}

void BM_Cookies(benchmark::State& state) {
  const std::string& header = body("cookie");
  for (auto _ : state)
    benchmark::DoNotOptimize(wsi::parseCookies(header).size());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * header.size()));
}

void BM_CookiesCgicc(benchmark::State& state) {
  const std::string& header = body("cookie");
  const std::string none;
  for (auto _ : state) {
    CgiccInput input("GET", "", none, header);
    cgicc::Cgicc cgi(&input);
    benchmark::DoNotOptimize(cgi.getEnvironment().getCookieList().size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * header.size()));
}

// Linearity: the same kind of body at 1, 10 and 100 MB.
void BM_Grow(benchmark::State& state, int kind) {
  const std::size_t size = static_cast<std::size_t>(state.range(0));
  const std::string b = kind == 0   ? largeParts(size, 4)
                        : kind == 1 ? smallFields(size)
                        : kind == 2 ? hostileRun(size, '\r')
                                    : hostileRun(size, '-');
  for (auto _ : state)
    benchmark::DoNotOptimize(parseMultipart(b));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * b.size()));
  state.SetComplexityN(static_cast<int64_t>(b.size()));
}

BENCHMARK_CAPTURE(BM_Multipart, large_parts, "large")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_MultipartForm, large_parts, "large")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Memchr, large_parts, "large")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Cgicc, large_parts, "large")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Multipart, small_fields, "small")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_MultipartForm, small_fields, "small")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Memchr, small_fields, "small")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Cgicc, small_fields, "small")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Urlencoded)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_UrlencodedMemchr)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Cgicc, urlencoded, "urlencoded")->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Cookies)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CookiesCgicc)->Unit(benchmark::kMicrosecond);
// The floor at the same sizes: from 10 to 100 MB the bodies leave the caches, and memory
// bandwidth, not the parser, sets the time of the bodies with few CR bytes.
void BM_GrowFloor(benchmark::State& state, int kind) {
  const std::size_t size = static_cast<std::size_t>(state.range(0));
  const std::string b = kind == 0 ? largeParts(size, 4) : hostileRun(size, '-');
  for (auto _ : state)
    benchmark::DoNotOptimize(memchrCount(b, '\r'));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * b.size()));
}

BENCHMARK_CAPTURE(BM_GrowFloor, large_parts, 0)
    ->RangeMultiplier(10)
    ->Range(1 << 20, 100 << 20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_GrowFloor, dash_run, 1)
    ->RangeMultiplier(10)
    ->Range(1 << 20, 100 << 20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Grow, large_parts, 0)
    ->RangeMultiplier(10)
    ->Range(1 << 20, 100 << 20)
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Grow, small_fields, 1)
    ->RangeMultiplier(10)
    ->Range(1 << 20, 100 << 20)
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Grow, cr_run, 2)
    ->RangeMultiplier(10)
    ->Range(1 << 20, 100 << 20)
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Grow, dash_run, 3)
    ->RangeMultiplier(10)
    ->Range(1 << 20, 100 << 20)
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
