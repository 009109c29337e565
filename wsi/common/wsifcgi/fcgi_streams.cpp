// The stream buffers of one FastCGI request.
#include "wsi/common/wsifcgi/fcgi_streams.hpp"

#include <cstring>

namespace wsi {
namespace fcgi {

StdinBuf::StdinBuf(Connection& connection, std::uint64_t drain_limit)
    : connection_(connection),
      drain_limit_(drain_limit),
      expected_(0),
      expected_known_(false),
      received_(0),
      ended_(false),
      failed_(false) {}

bool StdinBuf::fill() {
  Codec& codec = connection_.codec();
  while (!failed_) {
    if (codec.aborted()) {
      failed_ = true;
      break;
    }
    std::string& arrived = codec.stdinData();
    if (!arrived.empty()) {
      buffer_.swap(arrived);
      arrived.clear();
      // More bytes than announced: the body is not what the request says it is.
      if (expected_known_ && buffer_.size() > expected_ - received_) failed_ = true;
      if (failed_) break;
      received_ += buffer_.size();
      setg(&buffer_[0], &buffer_[0], &buffer_[0] + buffer_.size());
      return true;
    }
    if (codec.stdinEnded()) {
      ended_ = true;
      failed_ = expected_known_ && received_ != expected_;
      break;
    }
    if (!connection_.receiveWithin(connection_.options().read_timeout_ms, "posted data"))
      failed_ = true;
  }
  setg(nullptr, nullptr, nullptr);
  return false;
}

StdinBuf::int_type StdinBuf::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  return fill() ? traits_type::to_int_type(*gptr()) : traits_type::eof();
}

bool StdinBuf::drain(std::uint64_t limit) {
  std::uint64_t dropped = static_cast<std::uint64_t>(egptr() - gptr());
  setg(nullptr, nullptr, nullptr);
  while (dropped <= limit && fill()) {
    dropped += static_cast<std::uint64_t>(egptr() - gptr());
    setg(nullptr, nullptr, nullptr);
  }
  return complete();
}

StdoutBuf::StdoutBuf(Connection& connection, std::uint16_t request_id)
    : connection_(connection), request_id_(request_id), hold_(false) {
  setp(buffer_ + kHeaderSize, buffer_ + kHeaderSize + kContent);
}

bool StdoutBuf::sendBuffered(bool end) {
  const std::size_t size = static_cast<std::size_t>(pptr() - pbase());
  if (connection_.codec().aborted()) connection_.markBroken();
  if (connection_.broken()) return false;
  if (size == 0 && !end) return true;
  std::size_t total = 0;
  char* start = buffer_ + kHeaderSize;
  if (size > 0) {
    // The record is framed in place around the buffered bytes.
    const std::size_t padding = (8 - size % 8) % 8;
    encodeHeader(buffer_, kStdout, request_id_, size, padding);
    std::memset(start + size, 0, padding);
    start = buffer_;
    total = kHeaderSize + size + padding;
  }
  if (end) {
    std::string record;
    appendEndRequest(record, request_id_, 0, kRequestComplete);
    std::memcpy(start + total, record.data(), record.size());
    total += record.size();
  }
  setp(buffer_ + kHeaderSize, buffer_ + kHeaderSize + kContent);
  return connection_.send(start, total);
}

StdoutBuf::int_type StdoutBuf::overflow(int_type c) {
  if (!sendBuffered(false)) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

int StdoutBuf::sync() {
  if (hold_) return connection_.broken() ? -1 : 0;
  return sendBuffered(false) ? 0 : -1;
}

bool StdoutBuf::finish() {
  return sendBuffered(true);
}

}  // namespace fcgi
}  // namespace wsi
