// Helpers shared by the connector tests: socket pairs, frames and record blocks as bytes.
#ifndef WSI_TESTS_QCO_TEST_UTIL_HPP
#define WSI_TESTS_QCO_TEST_UTIL_HPP

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <string>

namespace qcotest {

// A connected pair of stream sockets: `host` for the connector, `peer` for the web server side.
struct SocketPair {
  int host = -1;
  int peer = -1;
  SocketPair() {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) == 0) {
      host = fds[0];
      peer = fds[1];
    }
  }
  ~SocketPair() {
    closeHost();
    closePeer();
  }
  void closeHost() {
    if (host >= 0) ::close(host);
    host = -1;
  }
  void closePeer() {
    if (peer >= 0) ::close(peer);
    peer = -1;
  }
  SocketPair(const SocketPair&) = delete;
  SocketPair& operator=(const SocketPair&) = delete;
};

inline std::string u32(unsigned long v) {
  std::string s(4, '\0');
  for (int i = 0; i < 4; ++i)
    s[i] = static_cast<char>((v >> (24 - 8 * i)) & 0xFF);
  return s;
}

// One frame carrying `payload`.
inline std::string frame(const std::string& payload) {
  return u32(payload.size()) + payload;
}

// A whole message: `payload` cut into frames of at most `chunk` bytes, then the end frame.
inline std::string message(const std::string& payload, std::size_t chunk = 1 << 20) {
  std::string out;
  for (std::size_t at = 0; at < payload.size(); at += chunk)
    out += frame(payload.substr(at, chunk));
  return out + u32(0);
}

// A record-block string: the 2-byte length form below 0x8000, else the 4-byte form.
inline std::string str(const std::string& s) {
  std::string out;
  if (s.size() < 0x8000) {
    out += static_cast<char>(s.size() >> 8);
    out += static_cast<char>(s.size() & 0xFF);
  } else {
    out += u32(s.size() | 0x80000000UL);
  }
  return out + s;
}

inline std::string header(const std::string& name, const std::string& value) {
  return '\x01' + str(name) + str(value);
}
inline std::string variable(const std::string& name, const std::string& value) {
  return '\x02' + str(name) + str(value);
}
inline std::string contentType(const std::string& type) {
  return '\x04' + str(type);
}

inline bool sendAll(int fd, const std::string& bytes) {
  std::size_t at = 0;
  while (at < bytes.size()) {
    const ssize_t n = send(fd, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
    if (n <= 0) return false;
    at += static_cast<std::size_t>(n);
  }
  return true;
}

// Exactly `n` bytes from `fd`, or fewer when the writer closes or nothing comes for `idle_ms`.
inline std::string receiveBytes(int fd, std::size_t n, int idle_ms = 2000) {
  std::string out;
  char buf[65536];
  while (out.size() < n) {
    pollfd p = {fd, POLLIN, 0};
    if (poll(&p, 1, idle_ms) <= 0) break;
    std::size_t want = n - out.size();
    if (want > sizeof buf) want = sizeof buf;
    const ssize_t got = read(fd, buf, want);
    if (got <= 0) break;
    out.append(buf, static_cast<std::size_t>(got));
  }
  return out;
}

// The payload of one message read from `fd`, frame by frame up to its end frame; `ok` tells
// whether the end frame arrived.
inline std::string receiveMessage(int fd, bool* ok = nullptr) {
  std::string payload;
  for (;;) {
    const std::string head = receiveBytes(fd, 4);
    if (head.size() < 4) break;
    const unsigned long length =
        (static_cast<unsigned long>(static_cast<unsigned char>(head[0])) << 24) |
        (static_cast<unsigned long>(static_cast<unsigned char>(head[1])) << 16) |
        (static_cast<unsigned long>(static_cast<unsigned char>(head[2])) << 8) |
        static_cast<unsigned char>(head[3]);
    if (length == 0) {
      if (ok) *ok = true;
      return payload;
    }
    const std::string part = receiveBytes(fd, length);
    payload += part;
    if (part.size() < length) break;
  }
  if (ok) *ok = false;
  return payload;
}

// Everything that arrives on `fd` until the writer closes or nothing comes for `idle_ms`.
inline std::string receiveAll(int fd, int idle_ms = 2000) {
  std::string out;
  char buf[65536];
  for (;;) {
    pollfd p = {fd, POLLIN, 0};
    if (poll(&p, 1, idle_ms) <= 0) break;
    const ssize_t n = read(fd, buf, sizeof buf);
    if (n <= 0) break;
    out.append(buf, static_cast<std::size_t>(n));
  }
  return out;
}

}  // namespace qcotest

#endif  // WSI_TESTS_QCO_TEST_UTIL_HPP
