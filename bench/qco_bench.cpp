// Speed of the connector back end: the record block parser on a typical request, on 10,000
// headers and on blocks of 1 KB to 1 MB, one whole exchange over a socket pair, requests per
// second over one kept-alive connection with the web server's side on a thread of its own, and
// what one more frame costs (the round trip beside libfcgi's is in compare_bench).
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

// What one more frame costs the host: a send of a 100-byte frame on the socket pair (the peer's
// side is drained every 64 sends, outside the timing). The connector round trip of compare_bench
// makes three such sends where libfcgi makes one write, because the header block and the body are
// flushed apart.
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

}  // namespace

BENCHMARK_MAIN();
