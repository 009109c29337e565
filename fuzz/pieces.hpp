// The property of every push parser: a body fed whole, one byte at a time, or in pieces of any
// other sizes gives the same result.
#ifndef WSI_FUZZ_PIECES_HPP
#define WSI_FUZZ_PIECES_HPP

#include <cstddef>
#include <functional>
#include <string>

#include "fuzz_check.hpp"

namespace fuzz {

// The size of the piece that starts at an offset of the body.
typedef std::function<std::size_t(std::size_t)> PieceSize;

// Feeds `body` to `parser` (anything with feed(data, size)) in the pieces `size_at` gives.
template <class Parser>
void feedInPieces(Parser& parser, const std::string& body, const PieceSize& size_at) {
  for (std::size_t at = 0; at < body.size();) {
    std::size_t size = size_at(at);
    if (size > body.size() - at) size = body.size() - at;
    parser.feed(body.data() + at, size);
    at += size;
  }
}

// Runs `parse` (which feeds `body` in the pieces it is given and returns an outcome that
// compares with ==) whole, byte by byte, and in pieces of 1 to 11 bytes chosen by the body's own
// bytes; checks that the three outcomes are equal and returns it.
template <class Outcome>
Outcome sameInAnyPieces(const std::string& body,
                        const std::function<Outcome(const PieceSize&)>& parse) {
  const Outcome whole = parse([&](std::size_t) { return body.size(); });
  const Outcome bytes = parse([](std::size_t) { return std::size_t(1); });
  const Outcome pieces = parse([&](std::size_t at) {
    return static_cast<std::size_t>(static_cast<unsigned char>(body[at]) % 11 + 1);
  });
  FUZZ_CHECK(whole == bytes);
  FUZZ_CHECK(whole == pieces);
  return whole;
}

}  // namespace fuzz

#endif  // WSI_FUZZ_PIECES_HPP
