// A FastCGI web server side written for the tests, independent of the library's own codec: record
// builders, and a blocking client that sends a request and reads the records that come back.
#ifndef WSI_TESTS_FCGI_CLIENT_HPP
#define WSI_TESTS_FCGI_CLIENT_HPP

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <cstring>
#include <stdexcept>
#include <string>

namespace fcgitest {

// One record: version 1, `type`, `id`, `content`, `padding` zero bytes.
inline std::string record(int type, int id, const std::string& content, int padding = 0) {
  std::string out;
  out += '\1';
  out += static_cast<char>(type);
  out += static_cast<char>(id >> 8);
  out += static_cast<char>(id & 0xFF);
  out += static_cast<char>(content.size() >> 8);
  out += static_cast<char>(content.size() & 0xFF);
  out += static_cast<char>(padding);
  out += '\0';
  return out + content + std::string(padding, '\0');
}

// The length prefix of a name or value: one byte below 128, else four with the top bit set.
inline std::string length(unsigned long n) {
  if (n < 128) return std::string(1, static_cast<char>(n));
  std::string out;
  out += static_cast<char>((n >> 24) | 0x80);
  out += static_cast<char>((n >> 16) & 0xFF);
  out += static_cast<char>((n >> 8) & 0xFF);
  out += static_cast<char>(n & 0xFF);
  return out;
}

inline std::string pair(const std::string& name, const std::string& value) {
  return length(name.size()) + length(value.size()) + name + value;
}

// A begin-request record: role (1 responder), flags (1 keep the connection).
inline std::string begin(int id, int role = 1, int flags = 1) {
  const char body[8] = {static_cast<char>(role >> 8),
                        static_cast<char>(role & 0xFF),
                        static_cast<char>(flags),
                        0,
                        0,
                        0,
                        0,
                        0};
  return record(1, id, std::string(body, 8));
}

inline std::string params(int id, const std::string& pairs) {
  return record(4, id, pairs);
}
inline std::string stdinRecord(int id, const std::string& data) {
  return record(5, id, data);
}

// A whole request: begin, the parameters in one record and their end, the posted data in one
// record (when any) and its end.
inline std::string request(int id, const std::string& pairs, const std::string& body = "",
                           int flags = 1) {
  return begin(id, 1, flags) + (pairs.empty() ? "" : params(id, pairs)) + params(id, "") +
         (body.empty() ? "" : stdinRecord(id, body)) + stdinRecord(id, "");
}

// What came back for one request.
struct Reply {
  std::string stdout_text;  // stdout content, records joined
  int end_status = -1;      // protocol status of the end-request record; -1 when none came
  bool closed = false;      // the connection closed before the end-request record
};

// A client connection to a Unix socket.
class Client {
 public:
  explicit Client(const std::string& path) {
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
      throw std::runtime_error("cannot connect to " + path);
  }
  ~Client() { ::close(fd_); }
  int fd() const { return fd_; }

  void send(const std::string& bytes) {
    if (::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
      throw std::runtime_error("send failed");
  }
  // Reads records until the end-request record, the connection's end or 10 s without a byte.
  Reply read() {
    Reply reply;
    std::string header, content;
    while (exactly(8, header)) {
      const int type = static_cast<unsigned char>(header[1]);
      const int size =
          (static_cast<unsigned char>(header[4]) << 8) | static_cast<unsigned char>(header[5]);
      if (!exactly(size + static_cast<unsigned char>(header[6]), content)) break;
      content.resize(size);
      if (type == 6) reply.stdout_text += content;
      if (type == 3) {
        reply.end_status = static_cast<unsigned char>(content[4]);
        return reply;
      }
    }
    reply.closed = true;
    return reply;
  }
  // Whether the server closed the connection within `ms` milliseconds.
  bool closedWithin(int ms) {
    pollfd p = {fd_, POLLIN, 0};
    if (poll(&p, 1, ms) <= 0) return false;
    char c;
    return recv(fd_, &c, 1, 0) <= 0;
  }

 private:
  bool exactly(std::size_t n, std::string& out) {
    out.assign(n, '\0');
    for (std::size_t got = 0; got < n;) {
      pollfd p = {fd_, POLLIN, 0};
      if (poll(&p, 1, 10000) <= 0) return false;
      const ssize_t r = recv(fd_, &out[got], n - got, 0);
      if (r <= 0) return false;
      got += static_cast<std::size_t>(r);
    }
    return true;
  }
  int fd_;
};

}  // namespace fcgitest

#endif  // WSI_TESTS_FCGI_CLIENT_HPP
