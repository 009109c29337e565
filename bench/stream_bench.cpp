// Speed of the stream back end: one whole exchange through the C entry points, and the
// request-configuration reader on a long configuration and on one very long line.
#include <iterator>
#include <sstream>
#include <string>

#include <benchmark/benchmark.h>

#include <wsi/wsi.hpp>

namespace {

// A typical request: 15 configuration lines, 5 query arguments.
const char kTypicalConfig[] =
    "REQUEST_METHOD=POST\n"
    "HTTP_URL=/shop/cart?item=4711&qty=2&colour=blue&size=M&ref=mail%20campaign\n"
    "SERVER_NAME=www.example.com\n"
    "SERVER_PORT=443\n"
    "SERVER_PROTOCOL=HTTP/1.1\n"
    "REMOTE_ADDR=192.0.2.10\n"
    "REMOTE_PORT=51234\n"
    "HTTPS=on\n"
    "CONTENT_TYPE=application/x-www-form-urlencoded\n"
    "CONTENT_LENGTH=27\n"
    "HTTP_USER_AGENT=Mozilla/5.0 (X11; Linux x86_64)\n"
    "HTTP_ACCEPT=text/html,application/xhtml+xml\n"
    "HTTP_REFERER=https://www.example.com/shop\n"
    "header.Accept-Language=en-GB,en;q=0.9\n"
    "header.Cookie=session=\"abc123\"; theme=dark\n";

const char kPosted[] = "item=4711&qty=2&gift=no&x=1";

void BM_WholeExchange(benchmark::State& state) {
  const std::string config(kTypicalConfig);
  const std::string body(1024, 'b');
  static const char spec[] = "streams(0,1,2)";
  for (auto _ : state) {
    std::istringstream config_stream(config), posted_stream(kPosted);
    std::ostringstream output;
    void* args[3] = {&config_stream, &posted_stream, &output};
    void* context = WSI_CreateContext(spec, sizeof spec - 1, args);
    wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
    wsi::Request& request = handle->Request();
    benchmark::DoNotOptimize(request.QueryArg("item"));
    benchmark::DoNotOptimize(request.HttpHeaders("user-agent"));
    std::istream* in = request.beginRead();
    const std::string data((std::istreambuf_iterator<char>(*in)), std::istreambuf_iterator<char>());
    request.endRead();
    wsi::Response& response = handle->Response();
    response.setHttpStatus(wsi::Http::Ok);
    response.setHttpHeader("Content-Type", "text/html; charset=utf-8");
    response.setHttpHeader("Cache-Control", "no-store");
    response.setHttpHeader("X-Request-Id", "4711-2");
    *response.beginWrite() << body;
    benchmark::DoNotOptimize(response.endWrite());
    WSI_DestroyContext(&context);
    benchmark::DoNotOptimize(output.str().size());
  }
}
BENCHMARK(BM_WholeExchange);

// Building a stream handle over `config`: the reader runs in full, nothing is written.
void readConfig(benchmark::State& state, const std::string& config) {
  for (auto _ : state) {
    std::istringstream config_stream(config), posted;
    std::ostringstream output;
    wsi::IosHandle handle(config_stream, posted, output);
    benchmark::DoNotOptimize(handle.Request().URL().size());
    handle.Response().close();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * config.size()));
}

void BM_ConfigReader10000Lines(benchmark::State& state) {
  std::string config;
  for (int i = 0; i < 10000; ++i)
    config += "VARIABLE_" + std::to_string(i) + "=value number " + std::to_string(i) + "\n";
  readConfig(state, config);
}
BENCHMARK(BM_ConfigReader10000Lines)->Unit(benchmark::kMillisecond);

void BM_ConfigReaderOneMegabyteLine(benchmark::State& state) {
  readConfig(state, "DATA=" + std::string(1 << 20, 'x') + "\n");
}
BENCHMARK(BM_ConfigReaderOneMegabyteLine)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
