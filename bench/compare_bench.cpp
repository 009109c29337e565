// The library's paths side by side with what people would pick instead, in one binary and one
// run: a hand-written floor doing the same work into the same table types, Boost.URL for the
// query, cgicc for the request set-up, libfcgi for a kept-alive round trip; and the linearity
// families of every parser. Each benchmark reports heap calls (operator new, malloc) and system
// calls (read, write, send, recv, poll and their vector forms) per operation, counted by the
// replacements below. bench/compare.sh runs it pinned and prints the table of ratios.
#include <fcgiapp.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <istream>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/url.hpp>
#include <cgicc/CgiInput.h>
#include <cgicc/Cgicc.h>

#include <qco/qco.hpp>
#include <wsi/qco_handle.hpp>
#include <wsi/wsi.hpp>
#include <wx/url_parser.hpp>
#include "qco_test_util.hpp"

// --- counting -----------------------------------------------------------------------------------

namespace {
unsigned long g_news = 0;
unsigned long g_mallocs = 0;
unsigned long g_syscalls = 0;
unsigned long g_writes = 0;
}  // namespace

// The replacements must be seen by the shared libraries, whatever the default visibility.
#define COUNTED __attribute__((visibility("default")))

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

// Every malloc of the process, the library's and the standard library's included.
COUNTED void* malloc(std::size_t n) {
  ++g_mallocs;
  return __libc_malloc(n);
}
COUNTED void* calloc(std::size_t n, std::size_t size) {
  ++g_mallocs;
  return __libc_calloc(n, size);
}
COUNTED void* realloc(void* p, std::size_t n) {
  ++g_mallocs;
  return __libc_realloc(p, n);
}

// The data-moving system calls of every library in the process, straight to the kernel.
COUNTED ssize_t read(int fd, void* buf, std::size_t n) {
  ++g_syscalls;
  return syscall(SYS_read, fd, buf, n);
}
COUNTED ssize_t write(int fd, const void* buf, std::size_t n) {
  ++g_syscalls;
  ++g_writes;
  return syscall(SYS_write, fd, buf, n);
}
COUNTED ssize_t writev(int fd, const struct iovec* iov, int n) {
  ++g_syscalls;
  ++g_writes;
  return syscall(SYS_writev, fd, iov, n);
}
COUNTED ssize_t send(int fd, const void* buf, std::size_t n, int flags) {
  ++g_syscalls;
  ++g_writes;
  return syscall(SYS_sendto, fd, buf, n, flags, nullptr, 0);
}
COUNTED ssize_t recv(int fd, void* buf, std::size_t n, int flags) {
  ++g_syscalls;
  return syscall(SYS_recvfrom, fd, buf, n, flags, nullptr, nullptr);
}
COUNTED int poll(struct pollfd* fds, nfds_t n, int timeout) {
  ++g_syscalls;
  return static_cast<int>(syscall(SYS_poll, fds, n, timeout));
}
}

COUNTED void* operator new(std::size_t n) {
  ++g_news;
  if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
  throw std::bad_alloc();
}
COUNTED void* operator new[](std::size_t n) {
  return operator new(n);
}
COUNTED void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
  ++g_news;
  return std::malloc(n == 0 ? 1 : n);
}
COUNTED void* operator new[](std::size_t n, const std::nothrow_t& t) noexcept {
  return operator new(n, t);
}
COUNTED __attribute__((noinline)) void operator delete(void* p) noexcept {
  std::free(p);
}
COUNTED __attribute__((noinline)) void operator delete[](void* p) noexcept {
  std::free(p);
}
COUNTED __attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
COUNTED __attribute__((noinline)) void operator delete[](void* p, std::size_t) noexcept {
  std::free(p);
}

namespace {

// Counts heap and system calls over a benchmark's timed loop and reports them per iteration.
class Counted {
 public:
  explicit Counted(benchmark::State& state)
      : state_(state),
        news_(g_news),
        mallocs_(g_mallocs),
        syscalls_(g_syscalls),
        writes_(g_writes) {}
  ~Counted() {
    const double n = static_cast<double>(state_.iterations() ? state_.iterations() : 1);
    state_.counters["new"] = static_cast<double>(g_news - news_) / n;
    state_.counters["malloc"] = static_cast<double>(g_mallocs - mallocs_) / n;
    state_.counters["syscalls"] = static_cast<double>(g_syscalls - syscalls_) / n;
    state_.counters["writes"] = static_cast<double>(g_writes - writes_) / n;
  }

 private:
  benchmark::State& state_;
  unsigned long news_, mallocs_, syscalls_, writes_;
};

// Leaves the calls made inside its scope out of the counts: the web server's side of a round
// trip is not the host's cost.
class Uncounted {
 public:
  Uncounted() : news_(g_news), mallocs_(g_mallocs), syscalls_(g_syscalls), writes_(g_writes) {}
  ~Uncounted() { g_news = news_, g_mallocs = mallocs_, g_syscalls = syscalls_, g_writes = writes_; }

 private:
  unsigned long news_, mallocs_, syscalls_, writes_;
};

// The web server's side: sends `bytes` to `fd`, uncounted.
void peerSend(int fd, const std::string& bytes) {
  Uncounted peer;
  qcotest::sendAll(fd, bytes);
}

// --- fixtures -----------------------------------------------------------------------------------

// 12 pairs, 204 bytes: escapes, plus signs, a quoted value.
const std::string kQuery =
    "item=4711&qty=2&colour=deep%20blue&size=M&ref=mail+campaign+2026&lang=en-GB"
    "&sort=price_asc&page=3&filter=%22in%20stock%22&session=ab12cd34ef56gh78"
    "&utm_source=newsletter&utm_medium=email";

// 20 lines, 8 of them "header." lines; the query arrives through HTTP_URL.
const std::string kConfig =
    "REQUEST_METHOD=GET\n"
    "HTTP_URL=/shop/cart?" +
    kQuery +
    "\n"
    "SERVER_NAME=www.example.com\n"
    "SERVER_PORT=443\n"
    "SERVER_PROTOCOL=HTTP/1.1\n"
    "SERVER_SOFTWARE=nginx/1.22.1\n"
    "GATEWAY_INTERFACE=CGI/1.1\n"
    "SCRIPT_NAME=/shop/cart\n"
    "REMOTE_ADDR=192.0.2.10\n"
    "REMOTE_PORT=51234\n"
    "HTTPS=on\n"
    "DOCUMENT_ROOT=/srv/www\n"
    "header.Host=www.example.com\n"
    "header.User-Agent=Mozilla/5.0 (X11; Linux x86_64; rv:120.0) Gecko/20100101\n"
    "header.Accept=text/html,application/xhtml+xml,application/xml;q=0.9\n"
    "header.Accept-Language=en-GB,en;q=0.9\n"
    "header.Accept-Encoding=gzip, deflate, br\n"
    "header.Cookie=session=\"abc123\"; theme=dark\n"
    "header.Referer=https://www.example.com/shop\n"
    "header.Connection=keep-alive\n";

const std::string kBody(64, 'b');

// The same request as name/value pairs, for the connector, cgicc and libfcgi.
const std::vector<std::pair<std::string, std::string>>& requestVariables() {
  static const std::vector<std::pair<std::string, std::string>> vars = {
      {"REQUEST_METHOD", "GET"},
      {"HTTP_URL", "/shop/cart?" + kQuery},
      {"URL", "/shop/cart"},
      {"QUERY_STRING", kQuery},
      {"SERVER_NAME", "www.example.com"},
      {"SERVER_PORT", "443"},
      {"SERVER_PROTOCOL", "HTTP/1.1"},
      {"SERVER_SOFTWARE", "nginx/1.22.1"},
      {"GATEWAY_INTERFACE", "CGI/1.1"},
      {"SCRIPT_NAME", "/shop/cart"},
      {"REMOTE_ADDR", "192.0.2.10"},
      {"REMOTE_PORT", "51234"},
      {"HTTPS", "on"},
      {"DOCUMENT_ROOT", "/srv/www"}};
  return vars;
}
const std::vector<std::pair<std::string, std::string>>& requestHeaders() {
  static const std::vector<std::pair<std::string, std::string>> headers = {
      {"Host", "www.example.com"},
      {"User-Agent", "Mozilla/5.0 (X11; Linux x86_64; rv:120.0) Gecko/20100101"},
      {"Accept", "text/html,application/xhtml+xml,application/xml;q=0.9"},
      {"Accept-Language", "en-GB,en;q=0.9"},
      {"Accept-Encoding", "gzip, deflate, br"},
      {"Cookie", "session=\"abc123\"; theme=dark"},
      {"Referer", "https://www.example.com/shop"},
      {"Connection", "keep-alive"}};
  return headers;
}

// The CGI name of header `name`: "HTTP_" and the name upper-cased with '-' as '_'.
std::string cgiName(const std::string& name) {
  std::string out("HTTP_");
  for (char c : name)
    out += c == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

// --- the hand floor: the same work into the same table types -----------------------------------

typedef wsi::OrderedNameTable Ordered;
typedef wsi::NameTable Names;

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Percent-decodes [p, end) into `out`, '+' as a blank when `plus`.
void floorDecode(std::string& out, const char* p, const char* end, bool plus) {
  out.reserve(static_cast<std::size_t>(end - p));
  while (p != end) {
    const char* run = p;
    while (p != end && *p != '%' && !(plus && *p == '+'))
      ++p;
    out.append(run, p);
    if (p == end) break;
    if (*p == '+') {
      out += ' ';
      ++p;
    } else if (end - p >= 3 && hexDigit(p[1]) >= 0 && hexDigit(p[2]) >= 0) {
      out += static_cast<char>(hexDigit(p[1]) * 16 + hexDigit(p[2]));
      p += 3;
    } else {
      out += *p++;
    }
  }
}

void stripBlanks(const char*& b, const char*& e) {
  while (b != e && (*b == ' ' || *b == '\t'))
    ++b;
  while (e != b && (e[-1] == ' ' || e[-1] == '\t'))
    --e;
}

// The query rules: '&' pieces, first '=', blanks stripped, one pair of quotes off the value,
// plus-decoded, kept when both parts are non-empty.
void floorQuery(Ordered& args, const std::string& query) {
  const char* p = query.data();
  const char* const end = p + query.size();
  std::string name, value;
  while (p <= end && !query.empty()) {
    const char* stop =
        static_cast<const char*>(std::memchr(p, '&', static_cast<std::size_t>(end - p)));
    if (stop == nullptr) stop = end;
    const char* eq =
        static_cast<const char*>(std::memchr(p, '=', static_cast<std::size_t>(stop - p)));
    if (eq != nullptr) {
      const char *nb = p, *ne = eq, *vb = eq + 1, *ve = stop;
      stripBlanks(nb, ne);
      stripBlanks(vb, ve);
      if (ve - vb >= 2 && (*vb == '\'' || *vb == '"') && ve[-1] == *vb) ++vb, --ve;
      name.clear();
      value.clear();
      floorDecode(name, nb, ne, true);
      floorDecode(value, vb, ve, true);
      if (!name.empty() && !value.empty()) args[name].swap(value);
    }
    p = stop + 1;
  }
}

bool same(const std::string& a, const char* literal) {
  return strcasecmp(a.c_str(), literal) == 0;
}

struct FloorRequest {
  int method = -1;
  std::string http_url, url, query_string;
  Ordered query_args, headers;
  Names variables;
};

// The C library's toupper in the classic locale.
char asciiUpper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// One configuration variable, filed by the reader's rules; `key` is scratch space.
void floorFile(FloorRequest& r, const std::string& name, const std::string& value,
               std::string& key) {
  if (strncasecmp(name.c_str(), "header.", 7) == 0) {
    key.assign(name, 7, std::string::npos);
    r.headers[key] = value;
    if (same(key, "Content-Type"))
      r.variables["CONTENT_TYPE"] = value;
    else if (same(key, "Content-Length"))
      r.variables["CONTENT_LENGTH"] = value;
    key.assign("HEADER_").append(name);
    r.variables[key] = value;
    key.assign("HTTP_");
    for (char c : name)
      key += c == '-' ? '_' : asciiUpper(c);
    r.variables[key] = value;
  } else if (same(name, "HTTP_URL")) {
    r.variables["HTTP_URL"] = value;
    const std::string::size_type q = value.find('?');
    std::string& url = r.variables["URL"];
    if (url.empty()) url.assign(value, 0, q);
    std::string& query = r.variables["QUERY_STRING"];
    if (query.empty() && q != std::string::npos) query.assign(value, q + 1, std::string::npos);
  } else if (same(name, "REQUEST_METHOD")) {
    r.method = same(value, "GET") ? 0 : same(value, "POST") ? 1 : -1;
    r.variables[name] = r.method == 0 ? "GET" : r.method == 1 ? "POST" : "INVALID";
  } else {
    r.variables[name] = value;
  }
}

void floorLoad(FloorRequest& r, std::istream& in) {
  std::string line, name, value, key;
  while (in.good()) {
    std::getline(in, line);
    const std::string::size_type eq = line.find('=');
    if (eq == std::string::npos) continue;
    const char *nb = line.data(), *ne = nb + eq, *vb = ne + 1, *ve = nb + line.size();
    while (ne != nb && std::isspace(static_cast<unsigned char>(ne[-1])))
      --ne;
    while (nb != ne && std::isspace(static_cast<unsigned char>(*nb)))
      ++nb;
    while (ve != vb && std::isspace(static_cast<unsigned char>(ve[-1])))
      --ve;
    name.clear();
    value.clear();
    floorDecode(name, nb, ne, false);
    floorDecode(value, vb, ve, false);
    floorFile(r, name, value, key);
  }
  r.http_url = r.variables["HTTP_URL"];
  r.url = r.variables["URL"];
  r.query_string = r.variables["QUERY_STRING"];
  floorQuery(r.query_args, r.query_string);
}

// The response: status line, content type, the headers in order, a blank line, each flushed.
struct FloorResponse {
  int status = -1;
  std::string type = "application/octet-stream", charset = "utf-8";
  Ordered headers;
  void send(std::ostream& os) const {
    os << "HTTP/1.1 " << status << " OK\n";
    os.flush();
    os << "Content-Type: " << type << "; charset=" << charset << '\n';
    os.flush();
    for (Ordered::const_iterator it = headers.begin(); it != headers.end(); ++it) {
      os << it->first << ": " << it->second << '\n';
      os.flush();
    }
    os << '\n';
    os.flush();
  }
};

// The host's work on the request and the response, as every exchange does it: 3 query and 2
// header look-ups; status, content type and 4 headers; a 64-byte body.
const std::string kLookups[] = {"item", "page", "utm_medium", "user-agent", "cookie"};
const std::pair<const char*, const char*> kResponseHeaders[] = {{"Cache-Control", "no-store"},
                                                                {"X-Request-Id", "4711-2"},
                                                                {"Set-Cookie", "seen=1; Path=/"},
                                                                {"Vary", "Accept-Encoding"}};

void lookUp(const wsi::Request& request) {
  for (int i = 0; i < 3; ++i)
    benchmark::DoNotOptimize(request.QueryArg(kLookups[i]));
  for (int i = 3; i < 5; ++i)
    benchmark::DoNotOptimize(request.HttpHeaders(kLookups[i]));
}

void respond(wsi::Response& response) {
  response.setHttpStatus(wsi::Http::Ok);
  response.setContentType("text/html");
  for (const auto& h : kResponseHeaders)
    response.setHttpHeader(h.first, h.second);
  *response.beginWrite() << kBody;
  benchmark::DoNotOptimize(response.endWrite());
}

void floorLookUp(const FloorRequest& request) {
  for (int i = 0; i < 3; ++i)
    benchmark::DoNotOptimize(request.query_args.lookup(kLookups[i]));
  for (int i = 3; i < 5; ++i)
    benchmark::DoNotOptimize(request.headers.lookup(kLookups[i]));
}

// One exchange through the C entry points with `spec` over `args`.
void exchange(const char* spec, unsigned long len, void** args) {
  void* context = WSI_CreateContext(spec, len, args);
  wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
  lookUp(handle->Request());
  respond(handle->Response());
  WSI_DestroyContext(&context);
}

// --- stream exchange ----------------------------------------------------------------------------

const char kStreams[] = "streams(0,1,2)";

// The exchange into `output`, a reused stream whose buffer `clear` empties.
template <class Clear>
void streamExchanges(benchmark::State& state, std::ostream& output, Clear clear) {
  Counted counted(state);
  for (auto _ : state) {
    std::istringstream config(kConfig), posted;
    clear();
    void* args[3] = {&config, &posted, &output};
    exchange(kStreams, sizeof kStreams - 1, args);
  }
}

void BM_Exchange_wsi(benchmark::State& state) {
  std::ostringstream output;
  streamExchanges(state, output, [&] { output.str(std::string()); });
}
BENCHMARK(BM_Exchange_wsi);

void BM_Exchange_floor(benchmark::State& state) {
  std::ostringstream output;
  Counted counted(state);
  for (auto _ : state) {
    std::istringstream config(kConfig), posted;
    output.str(std::string());
    FloorRequest request;
    floorLoad(request, config);
    floorLookUp(request);
    FloorResponse response;
    response.status = 200;
    response.type = "text/html";
    for (const auto& h : kResponseHeaders)
      response.headers[h.first] = h.second;
    response.send(output);
    output << kBody;
    output.flush();
    benchmark::DoNotOptimize(output.good());
  }
}
BENCHMARK(BM_Exchange_floor);

// A string buffer that counts its flushes: what a host's stream buffer sees of one exchange.
class CountingBuf : public std::stringbuf {
 public:
  unsigned long syncs = 0;

 protected:
  int sync() override {
    ++syncs;
    return std::stringbuf::sync();
  }
};

// Flushes reaching the host's stream buffer per exchange (the "flushes" counter).
void BM_Exchange_wsi_flushes(benchmark::State& state) {
  CountingBuf buf;
  std::ostream output(&buf);
  streamExchanges(state, output, [&] { buf.str(std::string()); });
  state.counters["flushes"] =
      static_cast<double>(buf.syncs) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_Exchange_wsi_flushes);

// The file back end: the write system calls of one exchange land in the "writes" counter.
void BM_Exchange_wsi_files(benchmark::State& state) {
  char dir[] = "/tmp/wsi_compare_XXXXXX";
  if (mkdtemp(dir) == nullptr) {
    state.SkipWithError("mkdtemp failed");
    return;
  }
  const std::string base(dir);
  {
    std::ofstream(base + "/request.cfg") << kConfig;
    std::ofstream(base + "/posted.dat");
  }
  const std::string spec =
      "files(" + base + "/request.cfg*" + base + "/posted.dat*" + base + "/response.out)";
  {
    Counted counted(state);
    for (auto _ : state)
      exchange(spec.c_str(), spec.size(), nullptr);
  }
  for (const char* f : {"/request.cfg", "/posted.dat", "/response.out"})
    std::remove((base + f).c_str());
  rmdir(dir);
}
BENCHMARK(BM_Exchange_wsi_files);

// --- query parser -------------------------------------------------------------------------------

void wsiQuery(Ordered& args, const std::string& query) {
  wx::query_parser<wx::encoding::host>::type()(args, query);
}

// Boost.URL: parse the query, then decode each pair into the same table (plus as blank).
void boostQuery(Ordered& args, const std::string& query) {
  const auto params = boost::urls::parse_query(query);
  if (!params) return;
  boost::urls::encoding_opts opts;
  opts.space_as_plus = true;
  std::string name, value;
  for (const auto& p : *params) {
    if (!p.has_value) continue;
    name.clear();
    value.clear();
    p.key.decode(opts, boost::urls::string_token::append_to(name));
    p.value.decode(opts, boost::urls::string_token::append_to(value));
    if (!name.empty() && !value.empty()) args[name].swap(value);
  }
}

// `parse` of `query` into a fresh table per iteration.
void queries(benchmark::State& state, const std::string& query,
             void (*parse)(Ordered&, const std::string&)) {
  Counted counted(state);
  for (auto _ : state) {
    Ordered args;
    parse(args, query);
    benchmark::DoNotOptimize(args.size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * query.size()));
}

void BM_Query_wsi(benchmark::State& state) {
  queries(state, kQuery, wsiQuery);
}
BENCHMARK(BM_Query_wsi);
void BM_Query_boost(benchmark::State& state) {
  queries(state, kQuery, boostQuery);
}
BENCHMARK(BM_Query_boost);
void BM_Query_floor(benchmark::State& state) {
  queries(state, kQuery, floorQuery);
}
BENCHMARK(BM_Query_floor);

// The table's share of every query row: the 12 pairs of kQuery, already decoded, stored into a
// fresh table as each parser stores them.
void BM_Query_tableOnly(benchmark::State& state) {
  Ordered decoded;
  floorQuery(decoded, kQuery);
  std::vector<std::pair<std::string, std::string>> pairs(decoded.begin(), decoded.end());
  Counted counted(state);
  for (auto _ : state) {
    Ordered args;
    for (const auto& p : pairs) {
      std::string value(p.second);
      args[p.first].swap(value);
    }
    benchmark::DoNotOptimize(args.size());
  }
}
BENCHMARK(BM_Query_tableOnly);

// --- request set-up -----------------------------------------------------------------------------

void BM_Setup_wsi(benchmark::State& state) {
  std::ostringstream output;
  Counted counted(state);
  for (auto _ : state) {
    std::istringstream config(kConfig), posted;
    wsi::IosHandle handle(config, posted, output);
    benchmark::DoNotOptimize(handle.Request().Method());
  }
}
BENCHMARK(BM_Setup_wsi);

void BM_Setup_floor(benchmark::State& state) {
  Counted counted(state);
  for (auto _ : state) {
    std::istringstream config(kConfig), posted;
    FloorRequest request;
    floorLoad(request, config);
    benchmark::DoNotOptimize(request.method);
  }
}
BENCHMARK(BM_Setup_floor);

// cgicc reads its environment through this input: the same variables, headers as HTTP_*.
class FixedCgiInput : public cgicc::CgiInput {
 public:
  FixedCgiInput() {
    for (const auto& v : requestVariables())
      env_.push_back(v);
    for (const auto& h : requestHeaders())
      env_.emplace_back(cgiName(h.first), h.second);
  }
  std::size_t read(char*, std::size_t) override { return 0; }
  std::string getenv(const char* name) override {
    for (const auto& v : env_)
      if (v.first == name) return v.second;
    return std::string();
  }

 private:
  std::vector<std::pair<std::string, std::string>> env_;
};

void BM_Setup_cgicc(benchmark::State& state) {
  FixedCgiInput input;
  Counted counted(state);
  for (auto _ : state) {
    cgicc::Cgicc cgi(&input);
    benchmark::DoNotOptimize(cgi.getElements().size());
  }
}
BENCHMARK(BM_Setup_cgicc);

// --- connector round trip -----------------------------------------------------------------------

// Reads from `fd` into `buf` until `complete(buf)` says the message is whole.
template <class Complete>
void readUntil(int fd, std::string& buf, Complete complete) {
  buf.clear();
  char chunk[16384];
  while (!complete(buf)) {
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n <= 0) throw std::runtime_error("message cut short");
    buf.append(chunk, static_cast<std::size_t>(n));
  }
}

// The web server's side: reads the whole response, uncounted.
template <class Complete>
void readResponse(int fd, std::string& buf, Complete complete) {
  Uncounted peer;
  readUntil(fd, buf, complete);
}

// Whether `buf` holds a whole framed message (its end frame included).
bool wholeMessage(const std::string& buf) {
  std::size_t at = 0;
  while (buf.size() - at >= 4) {
    const unsigned long n =
        static_cast<unsigned long>(static_cast<unsigned char>(buf[at])) << 24 |
        static_cast<unsigned long>(static_cast<unsigned char>(buf[at + 1])) << 16 |
        static_cast<unsigned long>(static_cast<unsigned char>(buf[at + 2])) << 8 |
        static_cast<unsigned char>(buf[at + 3]);
    if (n == 0) return true;
    at += 4 + n;
    if (at > buf.size()) return false;
  }
  return false;
}

std::string connectorRequest() {
  std::string block;
  for (const auto& v : requestVariables())
    block += qcotest::variable(v.first, v.second);
  for (const auto& h : requestHeaders())
    block += qcotest::header(h.first, h.second);
  return qcotest::message(block + "\x80");
}

void BM_RoundTrip_wsi(benchmark::State& state) {
  qcotest::SocketPair sp;
  qco::QorvaConnector conn(sp.host);
  const std::string request = connectorRequest();
  std::string reply;
  Counted counted(state);
  for (auto _ : state) {
    peerSend(sp.peer, request);
    {
      wsi::QcoHandle handle(conn);
      lookUp(handle.Request());
      respond(handle.Response());
    }
    readResponse(sp.peer, reply, wholeMessage);
  }
}
BENCHMARK(BM_RoundTrip_wsi);

// FastCGI records of the same request: BEGIN_REQUEST with keep-connection, the variables and
// headers as PARAMS, the empty PARAMS and STDIN records.
std::string fcgiRecord(unsigned char type, const std::string& content) {
  std::string r = {1,
                   static_cast<char>(type),
                   0,
                   1,
                   static_cast<char>(content.size() >> 8),
                   static_cast<char>(content.size() & 0xFF),
                   0,
                   0};
  return r + content;
}
std::string fcgiLength(std::size_t n) {
  if (n < 128) return std::string(1, static_cast<char>(n));
  return qcotest::u32(n | 0x80000000UL);
}
std::string fcgiRequest() {
  std::string params;
  for (const auto& v : requestVariables())
    params += fcgiLength(v.first.size()) + fcgiLength(v.second.size()) + v.first + v.second;
  for (const auto& h : requestHeaders()) {
    const std::string name = cgiName(h.first);
    params += fcgiLength(name.size()) + fcgiLength(h.second.size()) + name + h.second;
  }
  return fcgiRecord(1, std::string({0, 1, 1, 0, 0, 0, 0, 0})) + fcgiRecord(4, params) +
         fcgiRecord(4, "") + fcgiRecord(5, "");
}

// Whether `buf` ends with a whole END_REQUEST record.
bool fcgiEnded(const std::string& buf) {
  std::size_t at = 0;
  while (buf.size() - at >= 8) {
    const std::size_t len = static_cast<std::size_t>(static_cast<unsigned char>(buf[at + 4])) << 8 |
                            static_cast<unsigned char>(buf[at + 5]);
    const std::size_t next = at + 8 + len + static_cast<unsigned char>(buf[at + 6]);
    if (next > buf.size()) return false;
    if (buf[at + 1] == 3) return true;
    at = next;
  }
  return false;
}

void BM_RoundTrip_libfcgi(benchmark::State& state) {
  qcotest::SocketPair sp;
  FCGX_Init();
  FCGX_Request req;
  FCGX_InitRequest(&req, sp.host, 0);
  req.ipcFd = sp.host;  // the kept-alive connection, as if accepted
  req.keepConnection = 1;
  const std::string request = fcgiRequest();
  const char* const lookups[] = {"QUERY_STRING", "HTTP_USER_AGENT", "HTTP_COOKIE"};
  std::string reply;
  Counted counted(state);
  for (auto _ : state) {
    peerSend(sp.peer, request);
    if (FCGX_Accept_r(&req) != 0) {
      state.SkipWithError("FCGX_Accept_r failed");
      break;
    }
    for (const char* name : lookups)
      benchmark::DoNotOptimize(FCGX_GetParam(name, req.envp));
    FCGX_PutS("Status: 200 OK\r\nContent-Type: text/html; charset=utf-8\r\n", req.out);
    for (const auto& h : kResponseHeaders)
      FCGX_FPrintF(req.out, "%s: %s\r\n", h.first, h.second);
    FCGX_PutS("\r\n", req.out);
    FCGX_PutStr(kBody.data(), static_cast<int>(kBody.size()), req.out);
    FCGX_Finish_r(&req);
    readResponse(sp.peer, reply, fcgiEnded);
  }
  req.keepConnection = 0;
}
BENCHMARK(BM_RoundTrip_libfcgi);

// A host written by hand on the connector's wire format: one read of the framed request, its
// records into the same tables, one send of the response block, the body and the end frame.
std::string readString(const char*& p) {
  std::size_t n = static_cast<std::size_t>(static_cast<unsigned char>(p[0])) << 8 |
                  static_cast<unsigned char>(p[1]);
  if (n & 0x8000) {
    n = (n & 0x7FFF) << 16 | static_cast<std::size_t>(static_cast<unsigned char>(p[2])) << 8 |
        static_cast<unsigned char>(p[3]);
    p += 2;
  }
  p += 2;
  std::string s(p, n);
  p += n;
  return s;
}
void putString(std::string& out, const std::string& s) {
  out += static_cast<char>(s.size() >> 8);
  out += static_cast<char>(s.size() & 0xFF);
  out += s;
}

void BM_RoundTrip_floor(benchmark::State& state) {
  qcotest::SocketPair sp;
  const std::string request = connectorRequest();
  std::string in, reply, out;
  Counted counted(state);
  for (auto _ : state) {
    peerSend(sp.peer, request);
    readUntil(sp.host, in, wholeMessage);
    std::string block;
    for (std::size_t at = 0;;) {
      const std::size_t n = static_cast<std::size_t>(static_cast<unsigned char>(in[at + 2])) << 8 |
                            static_cast<unsigned char>(in[at + 3]);
      if (n == 0) break;
      block.append(in, at + 4, n);
      at += 4 + n;
    }
    FloorRequest r;
    for (const char* p = block.data(); static_cast<unsigned char>(*p) != 0x80;) {
      const char type = *p++;
      std::string name = readString(p);
      if (type == 1) {
        r.headers[name] = readString(p);
      } else {
        r.variables[name] = readString(p);
      }
    }
    r.method = same(r.variables["REQUEST_METHOD"], "GET") ? 0 : -1;
    r.http_url = r.variables["HTTP_URL"];
    r.url = r.variables["URL"];
    r.query_string = r.variables["QUERY_STRING"];
    floorQuery(r.query_args, r.query_string);
    floorLookUp(r);
    Ordered headers;
    for (const auto& h : kResponseHeaders)
      headers[h.first] = h.second;
    std::string payload = {3, 0, static_cast<char>(200), 4};
    putString(payload, "text/html; charset=utf-8");
    for (Ordered::const_iterator it = headers.begin(); it != headers.end(); ++it) {
      payload += '\x01';
      putString(payload, it->first);
      putString(payload, it->second);
    }
    payload += '\x80';
    payload += kBody;
    out = qcotest::message(payload);
    qcotest::sendAll(sp.host, out);
    readResponse(sp.peer, reply, wholeMessage);
  }
}
BENCHMARK(BM_RoundTrip_floor);

// --- linearity families: 1 KB, 10 KB, 100 KB, 1 MB ----------------------------------------------

void sizes(benchmark::internal::Benchmark* b) {
  for (int n = 1000; n <= 1000000; n *= 10)
    b->Arg(n);
  b->Unit(benchmark::kMicrosecond);
}

// Distinct pairs "k<i>=v<i>" joined by '&', at least `n` bytes.
std::string manyPairs(std::size_t n) {
  std::string q;
  for (int i = 0; q.size() < n; ++i)
    q += (i ? "&k" : "k") + std::to_string(i) + "=v" + std::to_string(i);
  return q;
}
std::string manyLines(std::size_t n) {
  std::string c;
  for (int i = 0; c.size() < n; ++i)
    c += "VARIABLE_" + std::to_string(i) + "=value " + std::to_string(i) + "\n";
  return c;
}

void readConfigWsi(benchmark::State& state, const std::string& config) {
  std::ostringstream output;
  Counted counted(state);
  for (auto _ : state) {
    std::istringstream in(config), posted;
    wsi::IosHandle handle(in, posted, output);
    benchmark::DoNotOptimize(handle.Request().URL().size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * config.size()));
}
void readConfigFloor(benchmark::State& state, const std::string& config) {
  Counted counted(state);
  for (auto _ : state) {
    std::istringstream in(config);
    FloorRequest request;
    floorLoad(request, in);
    benchmark::DoNotOptimize(request.url.size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * config.size()));
}

void BM_Lin_ConfigLines_wsi(benchmark::State& state) {
  readConfigWsi(state, manyLines(static_cast<std::size_t>(state.range(0))));
}
BENCHMARK(BM_Lin_ConfigLines_wsi)->Apply(sizes);
void BM_Lin_ConfigLines_floor(benchmark::State& state) {
  readConfigFloor(state, manyLines(static_cast<std::size_t>(state.range(0))));
}
BENCHMARK(BM_Lin_ConfigLines_floor)->Apply(sizes);

void BM_Lin_ConfigQuery_wsi(benchmark::State& state) {
  readConfigWsi(state, "QUERY_STRING=" + manyPairs(static_cast<std::size_t>(state.range(0))));
}
BENCHMARK(BM_Lin_ConfigQuery_wsi)->Apply(sizes);
void BM_Lin_ConfigQuery_floor(benchmark::State& state) {
  readConfigFloor(state, "QUERY_STRING=" + manyPairs(static_cast<std::size_t>(state.range(0))));
}
BENCHMARK(BM_Lin_ConfigQuery_floor)->Apply(sizes);

// The tables stay at one entry or grow by one, so these show the reader alone.
void BM_Lin_ConfigOneName_wsi(benchmark::State& state) {
  std::string config;
  while (config.size() < static_cast<std::size_t>(state.range(0)))
    config += "VARIABLE=value of the variable\n";
  readConfigWsi(state, config);
}
BENCHMARK(BM_Lin_ConfigOneName_wsi)->Apply(sizes);
void BM_Lin_ConfigHugeLine_wsi(benchmark::State& state) {
  readConfigWsi(state, "DATA=" + std::string(static_cast<std::size_t>(state.range(0)), 'x'));
}
BENCHMARK(BM_Lin_ConfigHugeLine_wsi)->Apply(sizes);

// One name over and over: the table stays at one entry, so this shows the parser alone.
std::string oneNamePairs(std::size_t n) {
  std::string query("name=value");
  while (query.size() < n)
    query += "&name=value";
  return query;
}

// `parse` over the query that `make` builds of the benchmark's size.
void BM_Lin_Query(benchmark::State& state, std::string (*make)(std::size_t),
                  void (*parse)(Ordered&, const std::string&)) {
  queries(state, make(static_cast<std::size_t>(state.range(0))), parse);
}
BENCHMARK_CAPTURE(BM_Lin_Query, wsi, manyPairs, wsiQuery)->Apply(sizes);
BENCHMARK_CAPTURE(BM_Lin_Query, floor, manyPairs, floorQuery)->Apply(sizes);
BENCHMARK_CAPTURE(BM_Lin_Query, oneName_wsi, oneNamePairs, wsiQuery)->Apply(sizes);
BENCHMARK_CAPTURE(BM_Lin_Query, oneName_floor, oneNamePairs, floorQuery)->Apply(sizes);

// An iostream over bytes in memory, read in place.
class MemoryBuf : public std::streambuf {
 public:
  explicit MemoryBuf(const std::string& bytes) {
    char* p = const_cast<char*>(bytes.data());
    setg(p, p, p + bytes.size());
  }
};

void readBlock(benchmark::State& state, const std::string& block) {
  qcotest::SocketPair sp;
  qco::QorvaConnector conn(sp.host);
  qcotest::sendAll(sp.peer, qcotest::message("\x80"));
  const wsi::QcoHandle unused(conn);
  Counted counted(state);
  for (auto _ : state) {
    MemoryBuf buf(block);
    std::iostream stream(&buf);
    wsi::QcoRequest request(stream, stream);
    benchmark::DoNotOptimize(request.init(unused));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * block.size()));
}

void BM_Lin_RecordBlock_wsi(benchmark::State& state) {
  std::string block;
  for (int i = 0; block.size() < static_cast<std::size_t>(state.range(0)); ++i)
    block += qcotest::variable("VARIABLE_" + std::to_string(i), "value " + std::to_string(i));
  readBlock(state, block + "\x80");
}
BENCHMARK(BM_Lin_RecordBlock_wsi)->Apply(sizes);

void BM_Lin_RecordBlockOneName_wsi(benchmark::State& state) {
  std::string block;
  while (block.size() < static_cast<std::size_t>(state.range(0)))
    block += qcotest::variable("VARIABLE", "value of the variable");
  readBlock(state, block + "\x80");
}
BENCHMARK(BM_Lin_RecordBlockOneName_wsi)->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
