// One FastCGI connection from a web server: its socket, the codec of what arrives on it, and
// sending and receiving with time limits. The socket is non-blocking; every wait is a poll()
// bounded by the server's timeouts, and nothing ever raises SIGPIPE.
#ifndef WSI_COMMON_WSIFCGI_FCGI_CONNECTION_HPP
#define WSI_COMMON_WSIFCGI_FCGI_CONNECTION_HPP

#include <cstddef>
#include <cstdint>

#include <wsi/fcgi_server.hpp>
#include "wsi/common/wsifcgi/fcgi_codec.hpp"

namespace wx {
namespace log {
class log;
}
}  // namespace wx

namespace wsi {
namespace fcgi {

// The source label of every message of the FastCGI family.
extern const char kLogSource[];

// The codec's limits as the options set them.
PairLimits pairLimits(const FcgiOptions& options);

class Connection {
 public:
  // Takes over `fd`, a connected non-blocking stream socket.
  Connection(int fd, const FcgiOptions& options);
  // Closes the socket.
  ~Connection();

  int fd() const { return fd_; }
  const FcgiOptions& options() const { return options_; }
  Codec& codec() { return codec_; }
  // Whether the connection can carry no further byte: the peer left, a send or receive failed or
  // timed out, or the peer broke the protocol.
  bool broken() const { return broken_; }
  // Marks the connection as not to be used for another request.
  void markBroken() { broken_ = true; }

  // Receives what the socket holds now, without waiting, and feeds it to the codec, sending the
  // answers it prepares; stops early once a request is ready to be served. Returns false (and
  // logs why) when the connection is over.
  bool receiveAvailable();
  // Waits up to `timeout_ms` for bytes, then receives as receiveAvailable() does. Returns false
  // (and logs why) when the connection is over or nothing came in time; `what` names what was
  // awaited, for the log.
  bool receiveWithin(unsigned timeout_ms, const char* what);
  // Sends the codec's pending answers, then the `size` bytes at `data`, waiting at most the write
  // timeout for each step of progress. Returns false (and logs why) when the peer is gone or too
  // slow; the connection is then broken.
  bool send(const char* data, std::size_t size);

  // Book-keeping of the server: an identity that is never reused, the time (monotonic
  // milliseconds) at which the server closes the connection while it waits, when the request
  // now arriving began (0 while idle), and whether a thread holds it.
  std::uint64_t id;
  std::int64_t deadline_ms;
  std::int64_t started_ms;
  bool busy;

 private:
  Connection(const Connection&);
  Connection& operator=(const Connection&);

  // One recv(): feeds what came. Returns 1 for bytes, 0 when nothing is there now, -1 when the
  // connection is over (logged).
  int receiveOnce();
  bool sendAll(const char* data, std::size_t size);
  bool fail(const char* what, int error);

  int fd_;
  FcgiOptions options_;
  Codec codec_;
  bool broken_;
  wx::log::log* plog_;
};

// Milliseconds of the monotonic clock.
std::int64_t monotonicMs();

}  // namespace fcgi
}  // namespace wsi

#endif  // WSI_COMMON_WSIFCGI_FCGI_CONNECTION_HPP
