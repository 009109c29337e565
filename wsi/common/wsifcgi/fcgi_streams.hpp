// The stream buffers of one FastCGI request: the posted data read from stdin records as they
// arrive (never the whole body in memory), and the response sent as stdout records.
#ifndef WSI_COMMON_WSIFCGI_FCGI_STREAMS_HPP
#define WSI_COMMON_WSIFCGI_FCGI_STREAMS_HPP

#include <cstdint>
#include <streambuf>
#include <string>

#include "wsi/common/wsifcgi/fcgi_connection.hpp"

namespace wsi {
namespace fcgi {

// The posted data of the connection's current request. It ends at the empty stdin record; it
// fails (ends early, and complete() is false) when the connection breaks first, the request is
// aborted, or the byte count differs from the length the request announced, if it announced one.
class StdinBuf : public std::streambuf {
 public:
  // `drain_limit` bounds what drain() drops.
  StdinBuf(Connection& connection, std::uint64_t drain_limit);

  // Sets the number of bytes the request announced. Without it the posted data is whatever
  // arrives up to the empty stdin record.
  void expect(std::uint64_t length) {
    expected_ = length;
    expected_known_ = true;
  }
  std::uint64_t drainLimit() const { return drain_limit_; }
  // Reads and drops what is left of the posted data, at most `limit` bytes; after a longer rest
  // ended() stays false, so the connection is not reused. Returns whether the posted data then
  // ended as it should (complete()).
  bool drain(std::uint64_t limit);
  // Whether the empty stdin record arrived: the connection is in step for the next request.
  bool ended() const { return ended_; }
  // Whether the posted data ended with exactly the announced number of bytes.
  bool complete() const { return ended_ && !failed_; }

 protected:
  virtual int_type underflow();

 private:
  // Makes the next posted bytes available in `buffer_`; false at their end or on failure.
  bool fill();

  Connection& connection_;
  std::uint64_t drain_limit_;
  std::uint64_t expected_;
  bool expected_known_;
  std::uint64_t received_;
  bool ended_;
  bool failed_;
  std::string buffer_;
};

// The response of the connection's current request, sent as stdout records of the buffer's size.
// Once sending failed, or the request was aborted, it takes nothing more.
class StdoutBuf : public std::streambuf {
 public:
  StdoutBuf(Connection& connection, std::uint16_t request_id);

  // Sends what is buffered and the end-request record, in one piece. Returns whether both went.
  bool finish();
  // From now on a flush keeps the buffered bytes for finish(), so that the end of a response
  // goes in one send.
  void holdFlushes() { hold_ = true; }

 protected:
  virtual int_type overflow(int_type c);
  virtual int sync();

 private:
  // Content bytes of one record; a multiple of 8, so that full records need no padding.
  static const std::size_t kContent = 16384;

  // Frames the buffered bytes as one record (and the end-request record when `end`) and sends.
  bool sendBuffered(bool end);

  Connection& connection_;
  std::uint16_t request_id_;
  bool hold_;
  // A record header, kContent bytes, then room for padding and the end-request record.
  char buffer_[kHeaderSize + kContent + 8 + 16];
};

}  // namespace fcgi
}  // namespace wsi

#endif  // WSI_COMMON_WSIFCGI_FCGI_STREAMS_HPP
