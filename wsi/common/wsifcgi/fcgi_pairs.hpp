// The decoder of FastCGI name-value pairs (the parameter stream and the body of a get-values
// record). It takes the bytes in any pieces, so that a pair may run across record boundaries, and
// refuses a stream that passes its limits before it stores a byte more.
#ifndef WSI_COMMON_WSIFCGI_FCGI_PAIRS_HPP
#define WSI_COMMON_WSIFCGI_FCGI_PAIRS_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace wsi {
namespace fcgi {

typedef std::vector<std::pair<std::string, std::string>> Pairs;

// Bounds on what one stream of pairs may hold. Every sum is checked in 32 bits.
struct PairLimits {
  std::uint32_t max_total;  // names and values together, in bytes
  std::uint32_t max_one;    // one name or one value, in bytes
  std::uint32_t max_count;  // pairs
};

class PairDecoder {
 public:
  explicit PairDecoder(const PairLimits& limits);

  // Decodes the `size` bytes at `data`, appending each completed pair to the pairs. Returns false
  // when the stream breaks a limit (error() says which); the decoder then takes nothing more.
  bool feed(const char* data, std::size_t size);
  // Whether the bytes fed so far end exactly after a pair (or are none): a stream that ends
  // anywhere else was cut inside a pair.
  bool atPairBoundary() const { return state_ == kNameLength && length_bytes_ == 0; }
  bool failed() const { return !error_.empty(); }
  const std::string& error() const { return error_; }
  const Pairs& pairs() const { return pairs_; }
  // Forgets everything, for the next stream.
  void reset();

 private:
  enum State { kNameLength, kValueLength, kName, kValue };

  // Takes bytes of a length field; returns how many of the `size` bytes it used.
  std::size_t takeLength(const unsigned char* data, std::size_t size);
  // Checks a complete length against the limits and moves on to the next state.
  bool lengthDone();
  // Moves past every name or value that is complete (also one of length 0).
  void settle();
  // Copies up to `size` bytes into `target` until `remaining_` is 0; returns how many it took.
  std::size_t takeText(std::string& target, const char* data, std::size_t size);
  bool fail(const std::string& why);

  PairLimits limits_;
  State state_;
  unsigned char length_buffer_[4];
  unsigned length_bytes_;      // bytes of the current length field received
  std::uint32_t name_length_;  // of the pair being read
  std::uint32_t value_length_;
  std::uint32_t remaining_;  // bytes of the current name or value still to come
  std::uint32_t total_;      // bytes of names and values announced so far
  Pairs pairs_;
  std::string error_;
};

}  // namespace fcgi
}  // namespace wsi

#endif  // WSI_COMMON_WSIFCGI_FCGI_PAIRS_HPP
