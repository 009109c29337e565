// Helpers shared by the connector tests, benchmarks and fuzz targets: socket pairs, frames and
// record blocks as bytes.
#ifndef WSI_TESTS_QCO_TEST_UTIL_HPP
#define WSI_TESTS_QCO_TEST_UTIL_HPP

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <algorithm>
#include <sstream>
#include <string>
#include <utility>

namespace qcotest {

// A connected pair of stream sockets: `host` for the connector, `peer` for the web server side.
struct SocketPair {
  int host = -1, peer = -1;
  SocketPair() {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) == 0) host = fds[0], peer = fds[1];
  }
  ~SocketPair() { closePeer(), ::close(host); }
  void closePeer() { ::close(std::exchange(peer, -1)); }
  SocketPair(const SocketPair&) = delete;
  SocketPair& operator=(const SocketPair&) = delete;
};

inline std::string u32(unsigned long v) {
  return {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
}

// A whole message: `payload` cut into frames of at most `chunk` bytes, then the end frame.
inline std::string message(const std::string& payload, std::size_t chunk = 1 << 20) {
  std::string out;
  for (std::size_t at = 0; at < payload.size(); at += chunk)
    out += u32(std::min(chunk, payload.size() - at)) + payload.substr(at, chunk);
  return out + u32(0);
}

// A record-block string: the 2-byte length form below 0x8000, else the 4-byte form.
inline std::string str(const std::string& s) {
  return (s.size() < 0x8000 ? u32(s.size()).substr(2) : u32(s.size() | 0x80000000UL)) + s;
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
inline std::string status(int code) {
  return '\x03' + u32(static_cast<unsigned long>(code)).substr(2);
}

// Bytes in the tables' notation: items separated by single blanks, each var:NAME=VALUE,
// header:NAME=VALUE (NAME ends at the first '='), type:VALUE, end (the end record), u32:N (4 bytes,
// big-endian) or any other text, taken as it stands (bytes that no builder writes).
inline std::string wire(const std::string& notation) {
  std::string out, item;
  for (std::istringstream items(notation); std::getline(items, item, ' ');) {
    const std::size_t colon = item.find(':'), equals = item.find('=');
    const std::string kind = item.substr(0, colon), rest = item.substr(colon + 1);
    const std::string name = rest.substr(0, rest.find('=')), value = item.substr(equals + 1);
    if (kind == "var")
      out += variable(name, value);
    else if (kind == "header")
      out += header(name, value);
    else if (kind == "type")
      out += contentType(rest);
    else if (kind == "u32")
      out += u32(std::stoul(rest));
    else
      out += item == "end" ? "\x80" : item;
  }
  return out;
}

// Sends all of `bytes` on `fd`; false when the peer has gone.
inline bool sendAll(int fd, const std::string& bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    const ssize_t n = send(fd, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
    if (n <= 0) return false;
    at += static_cast<std::size_t>(n);
  }
  return true;
}

// Up to `n` bytes from `fd`: fewer when the writer closes or nothing comes for `idle_ms`.
inline std::string receiveBytes(int fd, std::size_t n = std::string::npos, int idle_ms = 2000) {
  std::string out;
  char buf[65536];
  pollfd p = {fd, POLLIN, 0};
  while (out.size() < n && poll(&p, 1, idle_ms) > 0) {
    const ssize_t got = read(fd, buf, std::min(sizeof buf, n - out.size()));
    if (got <= 0) break;
    out.append(buf, static_cast<std::size_t>(got));
  }
  return out;
}

// The payload of one message read from `fd`, up to its end frame.
inline std::string receiveMessage(int fd) {
  std::string payload;
  for (std::string head; (head = receiveBytes(fd, 4)).size() == 4 && head != u32(0);) {
    unsigned long length = 0;
    for (char c : head)
      length = length << 8 | static_cast<unsigned char>(c);
    payload += receiveBytes(fd, length);
  }
  return payload;
}

}  // namespace qcotest

#endif  // WSI_TESTS_QCO_TEST_UTIL_HPP
