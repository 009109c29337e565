// A FastCGI web server side written for the tests, independent of the library's own codec: record
// builders, the tables' notation for records, and a blocking client.
#ifndef WSI_TESTS_FCGI_CLIENT_HPP
#define WSI_TESTS_FCGI_CLIENT_HPP

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <cstring>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "qco_test_util.hpp"

namespace fcgitest {

using qcotest::u32;

// One record: version 1, `type`, `id`, `content`, `padding` zero bytes.
inline std::string record(int type, int id, const std::string& content, int padding = 0) {
  return std::string{1, char(type)} + u32(id).substr(2) + u32(content.size()).substr(2) +
         char(padding) + '\0' + content + std::string(padding, '\0');
}

// A name-value pair; a length below 128 takes one byte, a longer one four with the top bit set.
inline std::string pair(const std::string& name, const std::string& value) {
  const auto length = [](std::size_t n) {
    return n < 128 ? std::string(1, char(n)) : u32(n | 0x80000000UL);
  };
  return length(name.size()) + length(value.size()) + name + value;
}

// The parts of `text` between each `separator` (none for an empty text, none after a last one).
inline std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, separator);)
    parts.push_back(part);
  return parts;
}

// `text` with each "{N*c}" replaced by N copies of the byte c.
inline std::string expand(std::string text) {
  static const std::regex kRun("\\{([0-9]+)\\*([\\s\\S])\\}");
  std::string out;
  for (std::smatch m; std::regex_search(text, m, kRun); text = m.suffix())
    out += m.prefix().str() + std::string(std::stoul(m[1]), m[2].str()[0]);
  return out + text;
}

// Pairs written "NAME=VALUE,NAME=VALUE" (NAME ends at the first '='), as bytes.
inline std::string pairs(const std::string& list) {
  std::string out;
  for (const std::string& item : split(list, ','))
    out += pair(item.substr(0, item.find('=')), item.substr(item.find('=') + 1));
  return out;
}

// Records written in the tables' notation: items separated by single blanks, their fields by ':'
// (numbers in any C base), after "{N*c}" is expanded:
//   begin:ID[:FLAGS[:ROLE]] (FLAGS 1 keeps the connection, ROLE 1 responder, both by default)
//   request:ID:PAIRS[:BODY[:FLAGS]] (begin, parameters, posted data, each with its end record)
//   end:ID:APP:PROTOCOL    params:ID:PAIRS[:CHUNK] (in records of CHUNK bytes)    stdin:ID:DATA
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
      out += record(1, id, u32(n(3, 1)).substr(2) + char(n(2, 1)) + std::string(5, '\0'));
    else if (f[0] == "request")
      out += wire("begin:" + f[1] + ":" + f[4]) + (f[2].empty() ? "" : record(4, id, pairs(f[2]))) +
             record(4, id, "") + (f[3].empty() ? "" : record(5, id, f[3])) + record(5, id, "");
    else if (f[0] == "end")
      out += record(3, id, u32(n(2, 0)) + char(n(3, 0)) + std::string(3, '\0'));
    else if (f[0] == "params")
      for (std::size_t at = 0; at == 0 || at < pairs(f[2]).size(); at += n(3, 65535))
        out += record(4, id, pairs(f[2]).substr(at, n(3, 65535)));
    else if (f[0] == "stdin")
      out += record(5, id, f[2]);
    else if (f[0] == "pairs" || f[0] == "rec")
      out += record(static_cast<int>(n(1, 0)), static_cast<int>(n(2, 0)),
                    f[0] == "pairs" ? pairs(f[3]) : f[3], static_cast<int>(n(4, 0)));
    else
      out += item;
  }
  return out;
}

// A client connection to a Unix socket; fd() is -1 when connecting failed.
class Client {
 public:
  explicit Client(const std::string& path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
      ::close(std::exchange(fd_, -1));
  }
  ~Client() { ::close(fd_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  int fd() const { return fd_; }

  // Reads records until an end-request record, the connection's end or 2 s without a byte.
  // Returns the records other than stdout ones, as bytes, then "EOF" when the connection ended;
  // the stdout content goes to `out`.
  std::string read() {
    std::string back;
    for (std::string head; (head = qcotest::receiveBytes(fd_, 8)).size() == 8;) {
      const std::size_t size = std::size_t(head[4] & 0xff) << 8 | (head[5] & 0xff);
      const std::string content = qcotest::receiveBytes(fd_, size + (head[6] & 0xff));
      if (head[1] == 6) out += content.substr(0, size);
      if (head[1] != 6) back += head + content;
      if (head[1] == 3) return back;
    }
    pollfd p = {fd_, POLLIN, 0};
    char c;
    return back + (poll(&p, 1, 0) > 0 && recv(fd_, &c, 1, MSG_PEEK) <= 0 ? "EOF" : "");
  }

  std::string out;  // the stdout content received so far

 private:
  int fd_;
};

}  // namespace fcgitest

#endif  // WSI_TESTS_FCGI_CLIENT_HPP
