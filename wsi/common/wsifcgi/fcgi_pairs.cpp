// The decoder of FastCGI name-value pairs.
#include "wsi/common/wsifcgi/fcgi_pairs.hpp"

namespace wsi {
namespace fcgi {

PairDecoder::PairDecoder(const PairLimits& limits) : limits_(limits) {
  reset();
}

void PairDecoder::reset() {
  state_ = kNameLength;
  length_bytes_ = 0;
  name_length_ = 0;
  value_length_ = 0;
  remaining_ = 0;
  total_ = 0;
  pairs_.clear();
  error_.clear();
}

bool PairDecoder::fail(const std::string& why) {
  error_ = why;
  return false;
}

bool PairDecoder::feed(const char* data, std::size_t size) {
  while (size > 0 && !failed()) {
    std::size_t used;
    if (state_ == kNameLength || state_ == kValueLength)
      used = takeLength(reinterpret_cast<const unsigned char*>(data), size);
    else
      used = takeText(state_ == kName ? pairs_.back().first : pairs_.back().second, data, size);
    data += used;
    size -= used;
    settle();
  }
  return !failed();
}

std::size_t PairDecoder::takeLength(const unsigned char* data, std::size_t size) {
  std::size_t used = 0;
  while (length_bytes_ < 4 && used < size) {
    length_buffer_[length_bytes_++] = data[used++];
    // A length below 128 is that one byte.
    if (length_bytes_ == 1 && (length_buffer_[0] & 0x80) == 0) break;
  }
  if (length_bytes_ == 4 || (length_bytes_ == 1 && (length_buffer_[0] & 0x80) == 0)) lengthDone();
  return used;
}

bool PairDecoder::lengthDone() {
  std::uint32_t length = length_buffer_[0];
  if (length_bytes_ == 4)
    length = (static_cast<std::uint32_t>(length_buffer_[0] & 0x7F) << 24) |
             (static_cast<std::uint32_t>(length_buffer_[1]) << 16) |
             (static_cast<std::uint32_t>(length_buffer_[2]) << 8) | length_buffer_[3];
  length_bytes_ = 0;
  if (length > limits_.max_one)
    return fail("a parameter name or value of " + std::to_string(length) + " bytes (limit " +
                std::to_string(limits_.max_one) + ")");
  // Compared as a difference, so that the sum never wraps.
  if (length > limits_.max_total - total_)
    return fail("parameters longer than " + std::to_string(limits_.max_total) + " bytes");
  total_ += length;
  if (state_ == kNameLength) {
    if (pairs_.size() >= limits_.max_count)
      return fail("more than " + std::to_string(limits_.max_count) + " parameters");
    name_length_ = length;
    state_ = kValueLength;
    return true;
  }
  pairs_.push_back(Pairs::value_type());
  value_length_ = length;
  remaining_ = name_length_;
  state_ = kName;
  return true;
}

void PairDecoder::settle() {
  while ((state_ == kName || state_ == kValue) && remaining_ == 0) {
    if (state_ == kName) {
      state_ = kValue;
      remaining_ = value_length_;
    } else {
      state_ = kNameLength;
    }
  }
}

std::size_t PairDecoder::takeText(std::string& target, const char* data, std::size_t size) {
  const std::size_t used = size < remaining_ ? size : remaining_;
  target.append(data, used);
  remaining_ -= static_cast<std::uint32_t>(used);
  return used;
}

}  // namespace fcgi
}  // namespace wsi
