// The listening sockets of a FastCGI server.
#include "wsi/common/wsifcgi/fcgi_listen.hpp"

#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace wsi {
namespace fcgi {

namespace {

// The first descriptor that systemd passes.
const int kSystemdFirstFd = 3;

[[noreturn]] void throwErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// Makes `fd` non-blocking and closed on exec; checks that it is a listening stream socket.
void adopt(int fd, const std::string& name) {
  int type = 0;
  int listening = 0;
  socklen_t size = sizeof type;
  if (getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) != 0) throwErrno(name + " is not a socket");
  size = sizeof listening;
  if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) != 0 || type != SOCK_STREAM ||
      !listening)
    throw std::invalid_argument(name + " is not a listening stream socket");
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0 ||
      fcntl(fd, F_SETFD, FD_CLOEXEC) != 0)
    throwErrno("cannot set up " + name);
}

// A decimal number of at most `max`, or -1.
long number(const std::string& text, long max) {
  if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != text.npos)
    return -1;
  const long value = std::strtol(text.c_str(), nullptr, 10);
  return value <= max ? value : -1;
}

// Binds and listens; closes `fd` and throws when that fails.
void bindAndListen(int fd, const sockaddr* address, socklen_t size, const FcgiOptions& options,
                   const std::string& name) {
  if (bind(fd, address, size) != 0 || listen(fd, options.listen_backlog) != 0) {
    const int error = errno;
    ::close(fd);
    errno = error;
    throwErrno("cannot listen on " + name);
  }
}

// Removes a socket file at `path` that nobody listens on any more; leaves anything else.
void removeStaleSocket(const std::string& path, const sockaddr_un& address) {
  struct stat info;
  if (lstat(path.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode)) return;
  const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (probe < 0) return;
  const bool stale =
      connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
      errno == ECONNREFUSED;
  ::close(probe);
  if (stale) unlink(path.c_str());
}

void openUnix(Listeners& listeners, const std::string& path, const FcgiOptions& options) {
  sockaddr_un address;
  std::memset(&address, 0, sizeof address);
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path)
    throw std::invalid_argument("unix:PATH needs a path of 1 to " +
                                std::to_string(sizeof address.sun_path - 1) + " bytes");
  std::memcpy(address.sun_path, path.data(), path.size());
  removeStaleSocket(path, address);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) throwErrno("cannot create a Unix socket");
  bindAndListen(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address, options,
                "unix:" + path);
  listeners.fds.push_back(fd);
  listeners.unix_path = path;
  if (chmod(path.c_str(), options.unix_socket_mode) != 0)
    throwErrno("cannot set the mode of " + path);
}

void openTcp(Listeners& listeners, const std::string& text, const FcgiOptions& options) {
  // HOST:PORT, with HOST in brackets for an IPv6 address.
  const std::string::size_type colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0 || number(text.substr(colon + 1), 65535) < 0)
    throw std::invalid_argument("tcp:HOST:PORT needs a host and a port number, not '" + text + "'");
  std::string host = text.substr(0, colon);
  if (host.size() > 1 && host[0] == '[' && host[host.size() - 1] == ']')
    host = host.substr(1, host.size() - 2);
  addrinfo hints;
  std::memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const int status = getaddrinfo(host.c_str(), text.c_str() + colon + 1, &hints, &found);
  if (status != 0)
    throw std::invalid_argument("cannot resolve '" + host + "': " + gai_strerror(status));
  const int fd = socket(found->ai_family, found->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    freeaddrinfo(found);
    throwErrno("cannot create a TCP socket");
  }
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  try {
    bindAndListen(fd, found->ai_addr, found->ai_addrlen, options, "tcp:" + text);
  } catch (...) {
    freeaddrinfo(found);
    throw;
  }
  freeaddrinfo(found);
  listeners.fds.push_back(fd);
}

void openSystemd(Listeners& listeners) {
  const char* pid = std::getenv("LISTEN_PID");
  const char* count = std::getenv("LISTEN_FDS");
  if (pid == nullptr || count == nullptr || number(pid, 0x7FFFFFFF) != getpid())
    throw std::invalid_argument(
        "systemd passed no sockets to this process (LISTEN_PID, LISTEN_FDS)");
  const long n = number(count, 1024);
  if (n <= 0) throw std::invalid_argument("LISTEN_FDS is not a number of sockets");
  for (int fd = kSystemdFirstFd; fd < kSystemdFirstFd + n; ++fd) {
    adopt(fd, "systemd socket " + std::to_string(fd));
    listeners.fds.push_back(fd);
  }
}

}  // namespace

Listeners openListeners(const std::string& address, const FcgiOptions& options) {
  Listeners listeners;
  try {
    if (address.compare(0, 5, "unix:") == 0) {
      openUnix(listeners, address.substr(5), options);
    } else if (address.compare(0, 4, "tcp:") == 0) {
      openTcp(listeners, address.substr(4), options);
    } else if (address.compare(0, 3, "fd:") == 0) {
      const long fd = number(address.substr(3), 0x7FFFFFFF);
      if (fd < 0) throw std::invalid_argument("fd:N needs a descriptor number");
      adopt(static_cast<int>(fd), "descriptor " + address.substr(3));
      listeners.fds.push_back(static_cast<int>(fd));
    } else if (address == "systemd") {
      openSystemd(listeners);
    } else {
      throw std::invalid_argument(
          "a FastCGI address is unix:PATH, tcp:HOST:PORT, fd:N or systemd, not '" + address + "'");
    }
  } catch (...) {
    closeListeners(listeners);
    throw;
  }
  return listeners;
}

void closeListeners(Listeners& listeners) {
  for (std::size_t i = 0; i < listeners.fds.size(); ++i)
    ::close(listeners.fds[i]);
  listeners.fds.clear();
  if (!listeners.unix_path.empty()) unlink(listeners.unix_path.c_str());
  listeners.unix_path.clear();
}

}  // namespace fcgi
}  // namespace wsi
