// Fuzz target: the FastCGI record codec. The first input byte seeds the sizes of the pieces in
// which the rest, the byte stream a web server might send, is fed.
//
// Checked: the codec ends in the same state whether fed whole or in pieces; what it answers is a
// sequence of whole records of the types a responder sends; the parameters stay within the
// limits; and it never holds more posted data than it was given.
#include <cstdint>
#include <string>

#include "fuzz_check.hpp"
#include "wsi/common/wsifcgi/fcgi_codec.hpp"

namespace {

using wsi::fcgi::Codec;

// Small limits, so that inputs reach them.
const wsi::fcgi::PairLimits kLimits = {4096, 512, 64};

// The codec's whole state as one text.
std::string state(Codec& codec) {
  std::string out = codec.failed() ? "error " + codec.error() : "";
  out += codec.idle() ? " idle" : "";
  if (codec.requestReady()) {
    out += " ready " + std::to_string(codec.requestId()) + (codec.keepConnection() ? " keep" : "");
    for (const auto& p : codec.params())
      out += " [" + p.first + "=" + p.second + "]";
    out += " stdin " + codec.stdinData() + (codec.stdinEnded() ? " ended" : "");
  }
  out += codec.aborted() ? " aborted" : "";
  return out + " replies " + codec.replies();
}

// The answers are whole records of version 1, of the types a responder sends, padded to 8.
void checkReplies(const std::string& replies) {
  std::size_t at = 0;
  while (at < replies.size()) {
    FUZZ_CHECK(replies.size() - at >= 8);
    const unsigned char* h = reinterpret_cast<const unsigned char*>(replies.data() + at);
    FUZZ_CHECK(h[0] == 1);
    FUZZ_CHECK(h[1] == wsi::fcgi::kEndRequest || h[1] == wsi::fcgi::kGetValuesResult ||
               h[1] == wsi::fcgi::kUnknownType);
    const std::size_t content = (static_cast<std::size_t>(h[4]) << 8) | h[5];
    FUZZ_CHECK((content + h[6]) % 8 == 0);
    at += 8 + content + h[6];
  }
  FUZZ_CHECK(at == replies.size());
}

void checkParams(Codec& codec) {
  std::size_t total = 0;
  for (const auto& p : codec.params()) {
    FUZZ_CHECK(p.first.size() <= kLimits.max_one && p.second.size() <= kLimits.max_one);
    total += p.first.size() + p.second.size();
  }
  FUZZ_CHECK(total <= kLimits.max_total);
  FUZZ_CHECK(codec.params().size() <= kLimits.max_count);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::uint32_t seed = data[0] * 2654435761u + 1;
  const char* stream = reinterpret_cast<const char*>(data + 1);
  const std::size_t length = size - 1;

  Codec whole(kLimits, 10);
  whole.feed(stream, length);
  Codec pieces(kLimits, 10);
  for (std::size_t at = 0; at < length;) {
    seed = seed * 1103515245u + 12345u;
    std::size_t piece = 1 + (seed >> 16) % 64;
    if (piece > length - at) piece = length - at;
    pieces.feed(stream + at, piece);
    at += piece;
  }
  FUZZ_CHECK(state(whole) == state(pieces));
  checkReplies(whole.replies());
  if (whole.requestReady()) checkParams(whole);
  FUZZ_CHECK(whole.stdinData().size() <= length);
  return 0;
}
