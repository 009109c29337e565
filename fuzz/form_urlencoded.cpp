// Fuzz target: URL-encoded form bodies. The input is the body.
//
// Checked: the body fed whole, one byte at a time and in pieces cut where the input's own bytes
// say gives the same pairs, or the same error; no pair is longer than its encoded text; there
// are no more pairs than '&' separators plus one; the limits hold.
#include <cstdint>
#include <string>

#include <wsi/form_urlencoded.hpp>
#include "fuzz_check.hpp"

namespace {

struct Outcome {
  wsi::NameValuePairs pairs;
  wsi::FormStatus status;
  std::string error;
  bool operator==(const Outcome& o) const {
    return pairs == o.pairs && status == o.status && error == o.error;
  }
};

// Parses `body` fed in pieces of the sizes `step` gives for each offset.
template <class Step>
Outcome parse(const std::string& body, const wsi::UrlencodedLimits& limits, Step step) {
  wsi::UrlencodedParser parser(limits);
  for (std::size_t at = 0; at < body.size();) {
    std::size_t size = step(at);
    if (size > body.size() - at) size = body.size() - at;
    parser.feed(body.data() + at, size);
    at += size;
  }
  parser.finish();
  return Outcome{parser.pairs(), parser.status(), parser.error()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  wsi::UrlencodedLimits limits;
  limits.max_body = 768;
  limits.max_pairs = 24;
  limits.max_item = 48;
  const Outcome whole = parse(body, limits, [&](std::size_t) { return body.size(); });
  const Outcome bytes = parse(body, limits, [](std::size_t) { return std::size_t(1); });
  const Outcome pieces = parse(body, limits, [&](std::size_t at) {
    return static_cast<std::size_t>(static_cast<unsigned char>(body[at]) % 7 + 1);
  });
  FUZZ_CHECK(whole == bytes);
  FUZZ_CHECK(whole == pieces);
  FUZZ_CHECK((whole.status == wsi::form_ok) == whole.error.empty());
  FUZZ_CHECK(whole.pairs.size() <= limits.max_pairs);
  std::size_t separators = 0;
  for (char c : body)
    separators += c == '&';
  FUZZ_CHECK(whole.pairs.size() <= separators + 1);
  for (const auto& pair : whole.pairs) {
    FUZZ_CHECK(pair.first.size() <= limits.max_item);
    FUZZ_CHECK(pair.second.size() <= limits.max_item);
  }
  return 0;
}
