// Speed of the foundation pieces: the case-insensitive compare, the ordered name table, the
// query parser and the response header rules.
#include <ostream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <wsi/interface.hpp>
#include <wx/char_casing.hpp>
#include <wx/url_parser.hpp>

namespace {

typedef wx::char_casing<char, wx::language::english> Casing;

void BM_NocaseCompare(benchmark::State& state) {
  const std::string a = "Accept-Language: en-GB,en;q=0.9";
  const std::string b = "ACCEPT-LANGUAGE: EN-GB,EN;Q=0.9";
  for (auto _ : state)
    benchmark::DoNotOptimize(Casing::nocase_compare(a.c_str(), b.c_str()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * a.size()));
}
BENCHMARK(BM_NocaseCompare);

// Header-like names, distinct ignoring case.
std::vector<std::string> names(int count) {
  std::vector<std::string> result;
  result.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i)
    result.push_back("X-Header-" + std::to_string(i));
  return result;
}

void BM_MapOrderedInsert(benchmark::State& state) {
  const std::vector<std::string> keys = names(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    wsi::OrderedNameTable map;
    for (const std::string& key : keys)
      map[key] = "value";
    benchmark::DoNotOptimize(map.size());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * keys.size()));
}
BENCHMARK(BM_MapOrderedInsert)->Arg(10)->Arg(1000)->Arg(100000);

void BM_MapOrderedLookup(benchmark::State& state) {
  const std::vector<std::string> keys = names(static_cast<int>(state.range(0)));
  wsi::OrderedNameTable map;
  for (const std::string& key : keys)
    map[key] = "value";
  std::vector<std::string> probes;
  for (const std::string& key : keys) {
    std::string upper = key;
    for (char& c : upper)
      c = Casing::ascii_toupper_[static_cast<unsigned char>(c)];
    probes.push_back(upper);
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.lookup(probes[i]));
    if (++i == probes.size()) i = 0;
  }
}
BENCHMARK(BM_MapOrderedLookup)->Arg(10)->Arg(1000)->Arg(100000);

// A query string of about `size` bytes made of typical pairs, some escaped and quoted.
std::string query(std::size_t size) {
  static const char* const pairs[] = {"q=web+server+interface", "lang=en-GB",     "page=2",
                                      "sort=%27date%27",        "filter= 'a b' ", "id=%41%42%43"};
  std::string text;
  for (std::size_t i = 0; text.size() < size; ++i) {
    if (!text.empty()) text.push_back('&');
    text += pairs[i % 6];
    text += std::to_string(i);
  }
  return text;
}

void BM_QueryParser(benchmark::State& state) {
  const std::string text = query(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    wsi::OrderedNameTable args;
    wx::query_parser<wx::encoding::host>::type()(args, text);
    benchmark::DoNotOptimize(args.size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_QueryParser)->Arg(200)->Arg(1 << 20);

// A response that only counts what the header rules hand it.
class CountingResponse : public wsi::Response {
 public:
  unsigned long calls = 0;
  void setHttpStatus(wsi::Http::Status) override {}
  void setContentType(const std::string&) override { ++calls; }
  void setContentEncoding(const std::string&) override { ++calls; }
  void setContentLength(unsigned long) override { ++calls; }
  void setHttpHeader(const std::string& name, const std::string& value) override {
    _setHttpHeaderHelper<wx::encoding::host>(name, value);
  }
  std::ostream* beginWrite() override { return nullptr; }
  bool endWrite() override { return false; }
  void flush() override {}
  void close() override {}
  void _setHttpHeader(const std::string&, const std::string&) override { ++calls; }
  void _dump(std::ostream&) const override {}
};

void BM_HeaderRules(benchmark::State& state) {
  const std::string headers[][2] = {{"Content-Type", "text/html; charset=utf-8; level=1"},
                                    {"Content-Length", "1234567"},
                                    {"Cache-Control", "no-cache"},
                                    {"X-Request-Id", "4f9a1c"}};
  CountingResponse response;
  for (auto _ : state)
    for (const auto& h : headers)
      response.setHttpHeader(h[0], h[1]);
  benchmark::DoNotOptimize(response.calls);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * 4));
}
BENCHMARK(BM_HeaderRules);

}  // namespace

BENCHMARK_MAIN();
