// One FastCGI connection: socket work with time limits over the codec.
#include "wsi/common/wsifcgi/fcgi_connection.hpp"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>
#include <cstring>

#include <wx/log.hpp>

namespace wsi {
namespace fcgi {

const char kLogSource[] = "wsi/common/wsifcgi";

namespace {

// Bytes taken from the socket at once.
const std::size_t kReceiveSize = 16384;
// recv() calls of one receiveAvailable(), so that a peer that never stops sending cannot keep a
// thread to itself.
const int kReceiveRounds = 16;

// Waits until `fd` is ready for `events` or `timeout_ms` passed. Returns false on a time-out or
// error (errno tells which; 0 for a time-out).
bool waitFor(int fd, short events, unsigned timeout_ms) {
  pollfd p;
  p.fd = fd;
  p.events = events;
  p.revents = 0;
  const std::int64_t deadline = monotonicMs() + timeout_ms;
  for (;;) {
    const std::int64_t left = deadline - monotonicMs();
    const int n = poll(&p, 1, left > 0 ? static_cast<int>(left) : 0);
    if (n > 0) return true;
    if (n == 0) {
      errno = 0;
      return false;
    }
    if (errno != EINTR) return false;
  }
}

}  // namespace

std::int64_t monotonicMs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

PairLimits pairLimits(const FcgiOptions& options) {
  PairLimits limits;
  limits.max_total = options.max_param_bytes;
  limits.max_one = options.max_name_value_bytes;
  limits.max_count = options.max_param_count;
  return limits;
}

Connection::Connection(int fd, const FcgiOptions& options)
    : id(0),
      deadline_ms(0),
      started_ms(0),
      busy(false),
      fd_(fd),
      options_(options),
      codec_(pairLimits(options), options.max_connections),
      broken_(false),
      plog_(Handle::plog_) {}

Connection::~Connection() {
  ::close(fd_);
}

bool Connection::fail(const char* what, int error) {
  broken_ = true;
  if (plog_ && plog_->admits<3>())
    plog_->Log<3>(kLogSource, __LINE__, "wsi::fcgi::Connection", "FastCGI connection %d: %s%s%s",
                  fd_, what, error ? ": " : "", error ? std::strerror(error) : "");
  return false;
}

int Connection::receiveOnce() {
  char buffer[kReceiveSize];
  ssize_t n;
  do
    n = ::recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
  while (n < 0 && errno == EINTR);
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return 0;
  // A reset between requests is a web server dropping a kept connection: an ordinary end.
  const bool reset_when_idle = n < 0 && errno == ECONNRESET && codec_.idle();
  if (n < 0 && !reset_when_idle) return fail("receiving failed", errno), -1;
  if (n <= 0) {
    if (!codec_.idle()) return fail("the web server closed the connection inside a request", 0), -1;
    broken_ = true;
    if (plog_ && plog_->admits<7>())
      plog_->Log<7>(kLogSource, __LINE__, "wsi::fcgi::Connection", "Connection terminated.");
    return -1;
  }
  const bool fed = codec_.feed(buffer, static_cast<std::size_t>(n));
  // Answers to the records before a protocol error still go out.
  if (!codec_.replies().empty() && !send(nullptr, 0)) return -1;
  if (!fed) {
    const std::string why = "the web server broke the protocol: " + codec_.error();
    return fail(why.c_str(), 0), -1;
  }
  return 1;
}

bool Connection::receiveAvailable() {
  if (broken_) return false;
  for (int round = 0; round < kReceiveRounds && !codec_.requestReady(); ++round) {
    const int got = receiveOnce();
    if (got < 0) return false;
    if (got == 0) break;
  }
  return true;
}

bool Connection::receiveWithin(unsigned timeout_ms, const char* what) {
  if (broken_) return false;
  if (!waitFor(fd_, POLLIN, timeout_ms)) {
    const std::string why =
        errno ? std::string("waiting for ") + what + " failed"
              : "no " + std::string(what) + " within " + std::to_string(timeout_ms) + " ms";
    return fail(why.c_str(), errno);
  }
  return receiveOnce() >= 0;
}

bool Connection::send(const char* data, std::size_t size) {
  if (broken_) return false;
  if (!codec_.replies().empty()) {
    std::string replies;
    replies.swap(codec_.replies());
    if (!sendAll(replies.data(), replies.size())) return false;
  }
  return sendAll(data, size);
}

bool Connection::sendAll(const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::send(fd_, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n > 0) {
      data += n;
      size -= static_cast<std::size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return fail("sending failed", errno);
    if (!waitFor(fd_, POLLOUT, options_.write_timeout_ms)) {
      if (errno) return fail("waiting to send failed", errno);
      const std::string why = "the web server took no response bytes within " +
                              std::to_string(options_.write_timeout_ms) + " ms";
      return fail(why.c_str(), 0);
    }
  }
  return true;
}

}  // namespace fcgi
}  // namespace wsi
