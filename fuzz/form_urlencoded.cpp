// Fuzz target: URL-encoded form bodies. The input is the body.
//
// Checked: the body fed whole, one byte at a time and in pieces cut where the input's own bytes
// say gives the same pairs, or the same error; no pair is longer than its encoded text; there
// are no more pairs than '&' separators plus one; the limits hold.
#include <cstdint>
#include <string>

#include <wsi/form_urlencoded.hpp>
#include "fuzz_check.hpp"
#include "pieces.hpp"

namespace {

struct Outcome {
  wsi::NameValuePairs pairs;
  wsi::FormStatus status;
  std::string error;
  bool operator==(const Outcome& o) const {
    return pairs == o.pairs && status == o.status && error == o.error;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  wsi::UrlencodedLimits limits;
  limits.max_body = 768;
  limits.max_pairs = 24;
  limits.max_item = 48;
  const Outcome whole = fuzz::sameInAnyPieces<Outcome>(body, [&](const fuzz::PieceSize& size_at) {
    wsi::UrlencodedParser parser(limits);
    fuzz::feedInPieces(parser, body, size_at);
    parser.finish();
    return Outcome{parser.pairs(), parser.status(), parser.error()};
  });
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
