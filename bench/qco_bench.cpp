// Speed of the connector back end: the record block parser on a typical request, on 10,000
// headers and on blocks of 1 KB to 1 MB, one whole exchange over a socket pair, requests per
// second over one kept-alive connection with the web server's side on a thread of its own, and
// the kept-alive round trip on one thread beside libfcgi's round trip of the same request.
#include <fcgiapp.h>
#include <unistd.h>
#include <cctype>
#include <iterator>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include <qco/qco.hpp>
#include <wsi/qco_handle.hpp>
#include <wsi/wsi.h>
#include "qco_test_util.hpp"

namespace {

using namespace qcotest;

// The typical request of the stream back end's benchmark, as records: 15 variables and headers,
// 5 query arguments.
std::string typicalBlock() {
  return variable("REQUEST_METHOD", "POST") +
         variable("HTTP_URL", "/shop/cart?item=4711&qty=2&colour=blue&size=M&ref=mail%20campaign") +
         variable("URL", "/shop/cart") +
         variable("QUERY_STRING", "item=4711&qty=2&colour=blue&size=M&ref=mail%20campaign") +
         variable("SERVER_NAME", "www.example.com") + variable("SERVER_PORT", "443") +
         variable("SERVER_PROTOCOL", "HTTP/1.1") + variable("REMOTE_ADDR", "192.0.2.10") +
         variable("REMOTE_PORT", "51234") + variable("HTTPS", "on") +
         contentType("application/x-www-form-urlencoded") + header("Content-Length", "27") +
         header("User-Agent", "Mozilla/5.0 (X11; Linux x86_64)") +
         header("Accept", "text/html,application/xhtml+xml") +
         header("Referer", "https://www.example.com/shop") +
         header("Accept-Language", "en-GB,en;q=0.9") +
         header("Cookie", "session=\"abc123\"; theme=dark") + "\x80";
}

std::string manyHeadersBlock(int n) {
  std::string block = variable("REQUEST_METHOD", "GET") + variable("URL", "/");
  for (int i = 0; i < n; ++i)
    block += header("X-Header-" + std::to_string(i), "value " + std::to_string(i));
  return block + "\x80";
}

const char kPosted[] = "item=4711&qty=2&gift=no&x=1";

// An iostream over bytes in memory, read in place.
class MemoryBuf : public std::streambuf {
 public:
  explicit MemoryBuf(const std::string& bytes) {
    char* p = const_cast<char*>(bytes.data());
    setg(p, p, p + bytes.size());
  }
};

// The parser alone: QcoRequest::init reads the block from a stream in memory. init reads nothing
// of the handle it is given, so one handle built over a real connection serves as that argument.
void parseBlock(benchmark::State& state, const std::string& block) {
  SocketPair sp;
  qco::QorvaConnector conn(sp.host);
  sendAll(sp.peer, message("\x80"));
  const wsi::QcoHandle unused(conn);
  for (auto _ : state) {
    MemoryBuf buf(block);
    std::iostream stream(&buf);
    wsi::QcoRequest request(stream, stream);
    benchmark::DoNotOptimize(request.init(unused));
    benchmark::DoNotOptimize(request.QueryArg("item"));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * block.size()));
}

void BM_ParseTypicalBlock(benchmark::State& state) {
  parseBlock(state, typicalBlock());
}
BENCHMARK(BM_ParseTypicalBlock);

void BM_Parse10000Headers(benchmark::State& state) {
  parseBlock(state, manyHeadersBlock(10000));
}
BENCHMARK(BM_Parse10000Headers);

// What a host does with one request: read the posted data, answer with a 1 KiB body.
void serve(wsi::QcoHandle& handle, const std::string& body) {
  wsi::Request& request = handle.Request();
  benchmark::DoNotOptimize(request.QueryArg("item"));
  benchmark::DoNotOptimize(request.HttpHeaders("user-agent"));
  std::istream* in = request.beginRead();
  const std::string data((std::istreambuf_iterator<char>(*in)), std::istreambuf_iterator<char>());
  request.endRead();
  wsi::Response& response = handle.Response();
  response.setHttpStatus(wsi::Http::Ok);
  response.setHttpHeader("Content-Type", "text/html; charset=utf-8");
  response.setHttpHeader("Cache-Control", "no-store");
  response.setHttpHeader("X-Request-Id", "4711-2");
  *response.beginWrite() << body;
  benchmark::DoNotOptimize(response.endWrite());
}

// One exchange on one thread: the web server's side sends the request message, the host serves
// it, the web server's side reads the whole response message.
void BM_WholeExchangeOverSocketPair(benchmark::State& state) {
  SocketPair sp;
  qco::QorvaConnector conn(sp.host);
  qco::QorvaConnector server(sp.peer);
  const std::string request = message(typicalBlock() + kPosted);
  const std::string body(1024, 'b');
  char buf[4096];
  for (auto _ : state) {
    sendAll(sp.peer, request);
    {
      wsi::QcoHandle handle(conn);
      serve(handle, body);
    }
    while (server.stream().read(buf, sizeof buf) || server.stream().gcount() > 0) {
    }
    server.SkipRestOfMessage();
  }
}
BENCHMARK(BM_WholeExchangeOverSocketPair);

// Requests per second over one kept-alive connection: the web server's side runs on its own
// thread, sending a request and reading its response, one after the other; the host serves one
// request per iteration.
void BM_RequestsPerSecondOneConnection(benchmark::State& state) {
  SocketPair sp;
  qco::QorvaConnector conn(sp.host);
  const std::string request = message(typicalBlock() + kPosted);
  const std::string body(1024, 'b');
  std::thread web_server([&] {
    qco::QorvaConnector server(sp.peer);
    char buf[4096];
    for (;;) {
      if (!sendAll(sp.peer, request)) return;
      while (server.stream().read(buf, sizeof buf) || server.stream().gcount() > 0) {
      }
      if (server.SkipRestOfMessage() != 0) return;  // the host has gone
    }
  });
  for (auto _ : state) {
    wsi::QcoHandle handle(conn);
    serve(handle, body);
  }
  shutdown(sp.host, SHUT_RDWR);
  web_server.join();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RequestsPerSecondOneConnection)->UseRealTime();

// The record block reader's growth: blocks of about `bytes` bytes made of 40-byte header records
// with distinct names (the table grows with them) and of one variable whose value fills the block
// in 60,000-byte records under one name (the table stays small).
std::string blockOfSize(std::size_t bytes, bool distinct) {
  std::string block = variable("REQUEST_METHOD", "GET");
  for (int i = 0; block.size() < bytes; ++i) {
    if (distinct)
      block += header("X-Header-" + std::to_string(i), "value of header " + std::to_string(i));
    else
      block += variable("HTTP_X_DATA", std::string(std::min<std::size_t>(60000, bytes), 'v'));
  }
  return block + "\x80";
}

void BM_ParseBlockManyRecords(benchmark::State& state) {
  parseBlock(state, blockOfSize(static_cast<std::size_t>(state.range(0)), true));
}
BENCHMARK(BM_ParseBlockManyRecords)->RangeMultiplier(10)->Range(1000, 1000000);

// The floor of the family above: the same names and values, already decoded, put into a header
// table of the same type. The table's growth (n log n, and cache misses once it outgrows the
// caches) is what makes the reader's time grow faster than its input.
void BM_TableFloorManyRecords(benchmark::State& state) {
  std::vector<std::pair<std::string, std::string>> pairs;
  for (std::size_t size = 0; size < static_cast<std::size_t>(state.range(0));) {
    const std::string i = std::to_string(pairs.size());
    pairs.emplace_back("X-Header-" + i, "value of header " + i);
    size += header(pairs.back().first, pairs.back().second).size();
  }
  for (auto _ : state) {
    wsi::OrderedNameTable table;
    for (const auto& p : pairs)
      table[p.first] = p.second;
    benchmark::DoNotOptimize(table.size());
  }
}
BENCHMARK(BM_TableFloorManyRecords)->RangeMultiplier(10)->Range(1000, 1000000);

void BM_ParseBlockLongValues(benchmark::State& state) {
  parseBlock(state, blockOfSize(static_cast<std::size_t>(state.range(0)), false));
}
BENCHMARK(BM_ParseBlockLongValues)->RangeMultiplier(10)->Range(1000, 1000000);

// --- kept-alive round trip on one thread ------------------------------------------------------
//
// The web server's side sends one request (14 server variables and 8 headers, a 12-pair query,
// no posted data) and reads the whole response; the host serves it as a host loop does (handle,
// context, 3 query and 2 header look-ups, status, content type, 4 headers, a 64-byte body). Both
// ends run on the benchmark's thread, so pinned to one core they share it as a web server and a
// host on a busy machine do.

const std::string kQuery =
    "item=4711&qty=2&colour=deep%20blue&size=M&ref=mail+campaign+2026&lang=en-GB"
    "&sort=price_asc&page=3&filter=%22in%20stock%22&session=ab12cd34ef56gh78"
    "&utm_source=newsletter&utm_medium=email";

typedef std::vector<std::pair<std::string, std::string>> Pairs;

const Pairs kVariables = {{"REQUEST_METHOD", "GET"},
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

const Pairs kHeaders = {{"Host", "www.example.com"},
                        {"User-Agent", "Mozilla/5.0 (X11; Linux x86_64; rv:120.0) Gecko/20100101"},
                        {"Accept", "text/html,application/xhtml+xml,application/xml;q=0.9"},
                        {"Accept-Language", "en-GB,en;q=0.9"},
                        {"Accept-Encoding", "gzip, deflate, br"},
                        {"Cookie", "session=\"abc123\"; theme=dark"},
                        {"Referer", "https://www.example.com/shop"},
                        {"Connection", "keep-alive"}};

const Pairs kResponseHeaders = {{"Cache-Control", "no-store"},
                                {"X-Request-Id", "4711-2"},
                                {"Set-Cookie", "seen=1; Path=/"},
                                {"Vary", "Accept-Encoding"}};

const std::string kSmallBody(64, 'b');

// The request message on the connector.
std::string roundTripRequest() {
  std::string block;
  for (const auto& v : kVariables)
    block += variable(v.first, v.second);
  for (const auto& h : kHeaders)
    block += header(h.first, h.second);
  return message(block + "\x80");
}

// Reads from `fd` into `buf` until `whole(buf)` says the response is complete.
template <class Whole>
void readResponse(int fd, std::string& buf, Whole whole) {
  buf.clear();
  char chunk[16384];
  while (!whole(buf)) {
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n <= 0) throw std::runtime_error("response cut short");
    buf.append(chunk, static_cast<std::size_t>(n));
  }
}

// Whether `buf` holds a whole connector message, its end frame included.
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

// The host's own logic on one exchange.
void answerSmall(wsi::Request& request, wsi::Response& response) {
  for (const char* name : {"item", "colour", "utm_medium"})
    benchmark::DoNotOptimize(request.QueryArg(name));
  for (const char* name : {"user-agent", "cookie"})
    benchmark::DoNotOptimize(request.HttpHeaders(name));
  response.setHttpStatus(wsi::Http::Ok);
  response.setContentType("text/html");
  response.setContentEncoding("utf-8");
  for (const auto& h : kResponseHeaders)
    response.setHttpHeader(h.first, h.second);
  *response.beginWrite() << kSmallBody;
  benchmark::DoNotOptimize(response.endWrite());
}

void BM_RoundTrip_wsi(benchmark::State& state) {
  SocketPair sp;
  qco::QorvaConnector connector(sp.host);
  const std::string request = roundTripRequest();
  std::string reply;
  for (auto _ : state) {
    sendAll(sp.peer, request);
    {
      wsi::QcoHandle handle(connector);
      if (handle.Request().beginRead() == nullptr) {
        state.SkipWithError("the request could not be read");
        break;
      }
      void* args[1] = {&handle};
      void* context = WSI_CreateContext("handle(0)", 9, args);
      wsi::Handle* h = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
      answerSmall(h->Request(), h->Response());
      WSI_DestroyContext(&context);
    }
    readResponse(sp.peer, reply, wholeMessage);
  }
}
BENCHMARK(BM_RoundTrip_wsi);

// What one more frame costs the host: a send of a 100-byte frame on the socket pair (the peer's
// side is drained every 64 sends, outside the timing). A round trip makes three such sends where
// libfcgi makes one write, because the header block and the body are flushed apart.
void BM_SendOneFrame(benchmark::State& state) {
  SocketPair sp;
  const std::string frame = message(std::string(96, 'f')).substr(0, 100);
  char drain[65536];
  int sent = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(send(sp.host, frame.data(), frame.size(), MSG_NOSIGNAL));
    if (++sent == 64) {
      state.PauseTiming();
      for (std::size_t got = 0; got < 64 * frame.size();)
        got += static_cast<std::size_t>(::read(sp.peer, drain, sizeof drain));
      sent = 0;
      state.ResumeTiming();
    }
  }
}
BENCHMARK(BM_SendOneFrame);

// The same request as FastCGI records: BEGIN_REQUEST with FCGI_KEEP_CONN, the variables and the
// headers (as HTTP_ names) in one PARAMS record, the empty PARAMS and STDIN records.
std::string fcgiRecord(unsigned char type, const std::string& content) {
  return std::string{1,
                     static_cast<char>(type),
                     0,
                     1,
                     static_cast<char>(content.size() >> 8),
                     static_cast<char>(content.size() & 0xFF),
                     0,
                     0} +
         content;
}

std::string fcgiLength(std::size_t n) {
  return n < 128 ? std::string(1, static_cast<char>(n)) : u32(n | 0x80000000UL);
}

std::string fcgiRequest() {
  Pairs params = kVariables;
  for (const auto& h : kHeaders) {
    std::string name("HTTP_");
    for (char c : h.first)
      name += c == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    params.emplace_back(name, h.second);
  }
  std::string content;
  for (const auto& p : params)
    content += fcgiLength(p.first.size()) + fcgiLength(p.second.size()) + p.first + p.second;
  return fcgiRecord(1, std::string{0, 1, 1, 0, 0, 0, 0, 0}) + fcgiRecord(4, content) +
         fcgiRecord(4, "") + fcgiRecord(5, "");
}

// Whether `buf` holds FastCGI records up to a whole END_REQUEST record.
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

// libfcgi's host on the kept-alive connection: the same look-ups, the same response as CGI
// header lines and body.
void BM_RoundTrip_libfcgi(benchmark::State& state) {
  SocketPair sp;
  FCGX_Init();
  FCGX_Request req;
  FCGX_InitRequest(&req, sp.host, 0);
  req.ipcFd = sp.host;  // the kept-alive connection, as if accepted
  req.keepConnection = 1;
  const std::string request = fcgiRequest();
  std::string reply;
  for (auto _ : state) {
    sendAll(sp.peer, request);
    if (FCGX_Accept_r(&req) != 0) {
      state.SkipWithError("FCGX_Accept_r failed");
      break;
    }
    std::string query(FCGX_GetParam("QUERY_STRING", req.envp));
    benchmark::DoNotOptimize(query);
    for (const char* name : {"HTTP_USER_AGENT", "HTTP_COOKIE"})
      benchmark::DoNotOptimize(FCGX_GetParam(name, req.envp));
    FCGX_PutS("Status: 200 OK\r\nContent-Type: text/html; charset=utf-8\r\n", req.out);
    for (const auto& h : kResponseHeaders)
      FCGX_FPrintF(req.out, "%s: %s\r\n", h.first.c_str(), h.second.c_str());
    FCGX_PutS("\r\n", req.out);
    FCGX_PutStr(kSmallBody.data(), static_cast<int>(kSmallBody.size()), req.out);
    FCGX_Finish_r(&req);
    readResponse(sp.peer, reply, fcgiEnded);
  }
  req.keepConnection = 0;
}
BENCHMARK(BM_RoundTrip_libfcgi);

}  // namespace

BENCHMARK_MAIN();
