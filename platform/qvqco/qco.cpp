// The stand-in connector: request and response messages as length-prefixed frames over one
// byte-stream connection.
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <cstring>

#include <qco/qco.hpp>

namespace qco {

namespace {

const std::size_t frame_header_size = 4;

// Milliseconds on the monotonic clock.
long long nowMs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Waits until `fd` is ready for `events` or the deadline (nowMs() based; negative: none) has
// passed. Returns 1 when ready (or closed, or in error: the next read or write tells which), 0 on
// timeout, -1 when poll itself failed.
int waitReady(int fd, short events, long long deadline) {
  for (;;) {
    int wait_ms = -1;
    if (deadline >= 0) {
      const long long left = deadline - nowMs();
      wait_ms = left > 0 ? static_cast<int>(left) : 0;
    }
    pollfd p;
    p.fd = fd;
    p.events = events;
    p.revents = 0;
    const int r = poll(&p, 1, wait_ms);
    if (r > 0) return 1;
    if (r == 0) return 0;
    if (errno != EINTR) return -1;
  }
}

// The deadline `timeout_ms` from now.
long long deadlineIn(int timeout_ms) {
  return nowMs() + timeout_ms;
}

bool isSocket(int fd) {
  struct stat st;
  return fstat(fd, &st) == 0 && S_ISSOCK(st.st_mode);
}

// write() on a descriptor that is not a socket, with SIGPIPE blocked for this thread: a SIGPIPE
// that the write raises is consumed before the mask is restored, one that was pending before is
// left alone.
ssize_t writeWithoutSigpipe(int fd, const char* data, std::size_t len) {
  sigset_t pipe_set;
  sigset_t old_set;
  sigemptyset(&pipe_set);
  sigaddset(&pipe_set, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe_set, &old_set);
  sigset_t pending;
  sigpending(&pending);
  const bool was_pending = sigismember(&pending, SIGPIPE) == 1;

  const ssize_t n = write(fd, data, len);
  const int saved_errno = errno;
  if (n < 0 && saved_errno == EPIPE && !was_pending) {
    const timespec zero = {0, 0};
    while (sigtimedwait(&pipe_set, 0, &zero) < 0 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &old_set, 0);
  errno = saved_errno;
  return n;
}

// Writes all `len` bytes. Returns 0, or the connector's error code.
int writeAll(int fd, bool is_socket, const char* data, std::size_t len, int timeout_ms) {
  while (len > 0) {
    const ssize_t n = is_socket ? send(fd, data, len, MSG_NOSIGNAL | MSG_DONTWAIT)
                                : writeWithoutSigpipe(fd, data, len);
    if (n > 0) {
      data += n;
      len -= static_cast<std::size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      const int ready = waitReady(fd, POLLOUT, deadlineIn(timeout_ms));
      if (ready == 0) return QorvaConnector::timed_out;
      if (ready < 0) return QorvaConnector::write_failed;
      continue;
    }
    if (n < 0 && (errno == EPIPE || errno == ECONNRESET)) return QorvaConnector::peer_closed;
    return QorvaConnector::write_failed;
  }
  return 0;
}

unsigned long readU32(const char* p) {
  const unsigned char* b = reinterpret_cast<const unsigned char*>(p);
  return (static_cast<unsigned long>(b[0]) << 24) | (static_cast<unsigned long>(b[1]) << 16) |
         (static_cast<unsigned long>(b[2]) << 8) | static_cast<unsigned long>(b[3]);
}

void writeU32(char* p, unsigned long v) {
  p[0] = static_cast<char>((v >> 24) & 0xFF);
  p[1] = static_cast<char>((v >> 16) & 0xFF);
  p[2] = static_cast<char>((v >> 8) & 0xFF);
  p[3] = static_cast<char>(v & 0xFF);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// QorvaStreamBuf

QorvaStreamBuf::QorvaStreamBuf(QorvaConnector* owner, int in_fd, int out_fd)
    : connector(owner),
      error(0),
      in_fd_(in_fd),
      out_fd_(out_fd),
      out_is_socket_(isSocket(out_fd)),
      timeout_ms_(QorvaConnector::default_timeout_ms),
      frame_left_(0),
      message_started_(false),
      message_ended_(false),
      in_error_(0),
      out_error_(0),
      raw_begin_(0),
      raw_end_(0) {
  setg(in_buf_, in_buf_, in_buf_);
  setp(out_buf_ + frame_header_size, out_buf_ + frame_header_size + buffer_size);
}

QorvaStreamBuf::~QorvaStreamBuf() {}

void QorvaStreamBuf::failInput(int code) {
  in_error_ = code;
  error = code;
}

void QorvaStreamBuf::failOutput(int code) {
  out_error_ = code;
  error = code;
}

// Reads more bytes from the descriptor behind the unparsed ones. Inside a message the wait is
// bounded by the timeout; before the first byte of a message it is not. Returns false, with the
// error set, when nothing more can come: end of file between messages is code 17, anywhere else
// the peer left inside a message. The bytes handed out before are overwritten, so the get area is
// emptied first: a putback across a refill fails instead of giving back another byte.
bool QorvaStreamBuf::fillRaw() {
  setg(in_buf_, in_buf_, in_buf_);
  if (raw_begin_ == raw_end_) {
    raw_begin_ = raw_end_ = 0;
  } else if (raw_begin_ > 0) {
    std::memmove(in_buf_, in_buf_ + raw_begin_, raw_end_ - raw_begin_);
    raw_end_ -= raw_begin_;
    raw_begin_ = 0;
  }
  const bool inside = message_started_ || raw_end_ > 0;
  const long long deadline = inside ? deadlineIn(timeout_ms_) : -1;
  // A socket is read without waiting first, so bytes that have already arrived cost one system
  // call; poll comes in only when nothing is there yet. Any other descriptor may block in read,
  // so it is polled first.
  const bool socket_in = in_fd_ == out_fd_ && out_is_socket_;
  bool wait = !socket_in;
  for (;;) {
    if (wait) {
      const int ready = waitReady(in_fd_, POLLIN, deadline);
      if (ready == 0) {
        failInput(QorvaConnector::timed_out);
        return false;
      }
      if (ready < 0) {
        failInput(QorvaConnector::read_failed);
        return false;
      }
    }
    char* to = in_buf_ + raw_end_;
    const std::size_t room = buffer_size - raw_end_;
    const ssize_t n = socket_in ? recv(in_fd_, to, room, MSG_DONTWAIT) : read(in_fd_, to, room);
    if (n > 0) {
      raw_end_ += static_cast<std::size_t>(n);
      return true;
    }
    wait = !socket_in || (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK));
    if (n < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) continue;
    if (n == 0 || errno == ECONNRESET) {
      failInput(inside ? QorvaConnector::closed_in_message : QorvaConnector::connection_ended);
    } else {
      failInput(QorvaConnector::read_failed);
    }
    return false;
  }
}

// Parses the next frame header. A zero length ends the message; a length above the limit is
// malformed. Returns false when no payload follows (end of message or failure).
bool QorvaStreamBuf::readFrameHeader() {
  while (raw_end_ - raw_begin_ < frame_header_size) {
    if (!fillRaw()) return false;
  }
  const unsigned long length = readU32(in_buf_ + raw_begin_);
  raw_begin_ += frame_header_size;
  message_started_ = true;
  if (length == 0) {
    message_ended_ = true;
    return false;
  }
  if (length > QorvaConnector::max_frame_length) {
    failInput(QorvaConnector::malformed_frame);
    return false;
  }
  frame_left_ = length;
  return true;
}

QorvaStreamBuf::int_type QorvaStreamBuf::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  if (in_error_ != 0 || message_ended_) return traits_type::eof();
  while (frame_left_ == 0) {
    if (!readFrameHeader()) return traits_type::eof();
  }
  if (raw_begin_ == raw_end_ && !fillRaw()) return traits_type::eof();
  std::size_t n = raw_end_ - raw_begin_;
  if (n > frame_left_) n = frame_left_;
  char* begin = in_buf_ + raw_begin_;
  setg(begin, begin, begin + n);
  raw_begin_ += n;
  frame_left_ -= n;
  return traits_type::to_int_type(*gptr());
}

// Sends the pending payload as one frame and, when `endMessage` is set, the end frame behind it,
// in one write. Returns false, with the error set, when writing failed now or before.
bool QorvaStreamBuf::sendPending(bool endMessage) {
  if (out_error_ != 0) return false;
  const std::size_t payload = static_cast<std::size_t>(pptr() - pbase());
  if (payload == 0 && !endMessage) return true;
  char* start = out_buf_ + frame_header_size;
  std::size_t total = 0;
  if (payload > 0) {
    start = out_buf_;
    writeU32(out_buf_, payload);
    total = frame_header_size + payload;
  }
  if (endMessage) {
    writeU32(out_buf_ + frame_header_size + payload, 0);
    total += frame_header_size;
  }
  setp(out_buf_ + frame_header_size, out_buf_ + frame_header_size + buffer_size);
  const int code = writeAll(out_fd_, out_is_socket_, start, total, timeout_ms_);
  if (code != 0) failOutput(code);
  return code == 0;
}

QorvaStreamBuf::int_type QorvaStreamBuf::overflow(int_type c) {
  if (!sendPending(false)) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

int QorvaStreamBuf::sync() {
  return sendPending(false) ? 0 : -1;
}

// Reads and drops the rest of the current request message, through the fixed buffer. Returns
// false, with the error set, when the end frame could not be reached.
bool QorvaStreamBuf::skipRestOfMessage() {
  setg(in_buf_, in_buf_, in_buf_);
  if (!message_started_) return true;
  while (!message_ended_) {
    if (in_error_ != 0) return false;
    if (frame_left_ == 0) {
      readFrameHeader();
      continue;
    }
    if (raw_begin_ == raw_end_ && !fillRaw()) return false;
    std::size_t n = raw_end_ - raw_begin_;
    if (n > frame_left_) n = frame_left_;
    raw_begin_ += n;
    frame_left_ -= n;
  }
  return true;
}

// Sends the pending payload and the end frame. Returns 0, or the error code.
int QorvaStreamBuf::endMessage() {
  return sendPending(true) ? 0 : out_error_;
}

// Skips the rest of the current incoming message and makes ready for the next one. Returns 0, or
// the error code.
int QorvaStreamBuf::nextMessage() {
  if (in_error_ != 0 || !skipRestOfMessage()) return in_error_;
  message_started_ = false;
  message_ended_ = false;
  error = 0;
  return 0;
}

// ---------------------------------------------------------------------------------------------
// QorvaStream

QorvaStream::QorvaStream(QorvaStreamBuf* buf) : std::iostream(buf) {}

QorvaStream::~QorvaStream() {}

// ---------------------------------------------------------------------------------------------
// QorvaConnector

QorvaConnector::QorvaConnector(int fd) : buf_(this, fd, fd), stream_(&buf_) {}

QorvaConnector::QorvaConnector(int in_fd, int out_fd) : buf_(this, in_fd, out_fd), stream_(&buf_) {}

QorvaConnector::~QorvaConnector() {}

std::iostream& QorvaConnector::stream() {
  return stream_;
}

// A failed input is reported before a failed output: it happened first, and the output usually
// failed because of it.
int QorvaConnector::PrepareToReceive() const {
  const int sent = EndMessage();
  if (buf_.in_error_ != 0) return buf_.in_error_;
  if (sent != 0) return sent;
  return SkipRestOfMessage();
}

int QorvaConnector::EndMessage() const {
  return buf_.endMessage();
}

int QorvaConnector::SkipRestOfMessage() const {
  const int code = buf_.nextMessage();
  if (code == 0) stream_.clear();
  return code;
}

const char* QorvaConnector::ErrorNameOf(int code) {
  switch (code) {
    case no_error:
      return "No error";
    case read_failed:
      return "Reading from the connection failed";
    case write_failed:
      return "Writing to the connection failed";
    case closed_in_message:
      return "Connection closed inside a message";
    case timed_out:
      return "Timed out waiting for the peer";
    case malformed_frame:
      return "Malformed frame: length above the limit";
    case peer_closed:
      return "Connection closed by the peer while writing";
    case connection_ended:
      return "Connection ended by the peer";
    default:
      return "Unknown error";
  }
}

int QorvaConnector::lastError() const {
  return buf_.error;
}

void QorvaConnector::setTimeout(int milliseconds) {
  buf_.timeout_ms_ = milliseconds < 1 ? 1 : milliseconds;
}

int QorvaConnector::timeout() const {
  return buf_.timeout_ms_;
}

}  // namespace qco
