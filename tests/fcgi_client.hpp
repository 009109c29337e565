// A FastCGI web server side written for the tests, independent of the library's own codec: record
// builders, the tables' notation for records, and a blocking client that sends a request and
// reads the records that come back.
#ifndef WSI_TESTS_FCGI_CLIENT_HPP
#define WSI_TESTS_FCGI_CLIENT_HPP

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "qco_test_util.hpp"

namespace fcgitest {

using qcotest::u32;

// One record: version 1, `type`, `id`, `content`, `padding` zero bytes.
inline std::string record(int type, int id, const std::string& content, int padding = 0) {
  return std::string{1, char(type)} + u32(id).substr(2) + u32(content.size()).substr(2) +
         char(padding) + '\0' + content + std::string(padding, '\0');
}

// The length prefix of a name or value: one byte below 128, else four with the top bit set.
inline std::string length(unsigned long n) {
  return n < 128 ? std::string(1, char(n)) : u32(n | 0x80000000UL);
}

inline std::string pair(const std::string& name, const std::string& value) {
  return length(name.size()) + length(value.size()) + name + value;
}

// A begin-request record: role (1 responder), flags (1 keep the connection).
inline std::string begin(int id, int role = 1, int flags = 1) {
  return record(1, id, u32(role).substr(2) + char(flags) + std::string(5, '\0'));
}

// An end-request record: the application's and the protocol's status.
inline std::string endRequest(int id, unsigned long app_status, int protocol_status) {
  return record(3, id, u32(app_status) + char(protocol_status) + std::string(3, '\0'));
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

// `text` split at each `separator` (one empty part for an empty text).
inline std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts(1);
  for (char c : text)
    if (c == separator)
      parts.emplace_back();
    else
      parts.back() += c;
  return parts;
}

// `text` with each "{N*c}" replaced by N copies of the byte c.
inline std::string expand(const std::string& text) {
  std::string out;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::size_t star = text.find('*', at);
    if (text[at] == '{' && star != std::string::npos && star + 2 < text.size() &&
        text[star + 2] == '}') {
      out.append(std::stoul(text.substr(at + 1, star - at - 1)), text[star + 1]);
      at = star + 2;
    } else {
      out += text[at];
    }
  }
  return out;
}

// Pairs written "NAME=VALUE,NAME=VALUE" (NAME ends at the first '='), as bytes.
inline std::string pairs(const std::string& list) {
  std::string out;
  for (const std::string& item : split(list, ','))
    if (!list.empty()) out += pair(item.substr(0, item.find('=')), item.substr(item.find('=') + 1));
  return out;
}

// Records written in the tables' notation: items separated by single blanks, their fields by ':'
// (numbers in any C base), after "{N*c}" is expanded:
//   begin:ID[:FLAGS[:ROLE]]    request:ID:PAIRS[:BODY[:FLAGS]]    end:ID:APP:PROTOCOL
//   params:ID:PAIRS[:CHUNK] (in records of CHUNK bytes)   stdin:ID:DATA
//   pairs:TYPE:ID:PAIRS[:PADDING]    rec:TYPE:ID:CONTENT[:PADDING]
// Any other item is taken as it stands (bytes that no builder writes).
inline std::string wire(const std::string& notation) {
  std::string out;
  for (const std::string& item : split(expand(notation), ' ')) {
    std::vector<std::string> f = split(item, ':');
    f.resize(6);
    const auto n = [&f](int i, unsigned long otherwise) {
      return f[i].empty() ? otherwise : std::stoul(f[i], nullptr, 0);
    };
    const int id = static_cast<int>(n(1, 0));
    if (f[0] == "begin")
      out += begin(id, static_cast<int>(n(3, 1)), static_cast<int>(n(2, 1)));
    else if (f[0] == "request")
      out += request(id, pairs(f[2]), f[3], static_cast<int>(n(4, 1)));
    else if (f[0] == "end")
      out += endRequest(id, n(2, 0), static_cast<int>(n(3, 0)));
    else if (f[0] == "params")
      for (std::size_t at = 0; at == 0 || at < pairs(f[2]).size(); at += n(3, 65535))
        out += params(id, pairs(f[2]).substr(at, n(3, 65535)));
    else if (f[0] == "stdin")
      out += stdinRecord(id, f[2]);
    else if (f[0] == "pairs" || f[0] == "rec")
      out += record(static_cast<int>(n(1, 0)), static_cast<int>(n(2, 0)),
                    f[0] == "pairs" ? pairs(f[3]) : f[3], static_cast<int>(n(4, 0)));
    else
      out += item;
  }
  return out;
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
  explicit Client(const std::string& path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
      throw std::runtime_error("cannot connect to " + path);
  }
  ~Client() { ::close(fd_); }
  int fd() const { return fd_; }

  void send(const std::string& bytes) {
    if (!qcotest::sendAll(fd_, bytes)) throw std::runtime_error("send failed");
  }
  // Reads records until the end-request record, the connection's end or 10 s without a byte.
  Reply read() {
    Reply reply;
    for (std::string head; (head = qcotest::receiveBytes(fd_, 8, 10000)).size() == 8;) {
      const auto byte = [&head](int i) { return static_cast<unsigned char>(head[i]); };
      const std::size_t size = byte(4) << 8 | byte(5);
      const std::string content = qcotest::receiveBytes(fd_, size + byte(6), 10000);
      if (content.size() != size + byte(6)) break;
      if (byte(1) == 6) reply.stdout_text += content.substr(0, size);
      if (byte(1) == 3) {
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
    char c;
    return poll(&p, 1, ms) > 0 && recv(fd_, &c, 1, 0) <= 0;
  }

 private:
  int fd_;
};

}  // namespace fcgitest

#endif  // WSI_TESTS_FCGI_CLIENT_HPP
