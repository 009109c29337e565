// The listening sockets of a FastCGI server, from its address text.
#ifndef WSI_COMMON_WSIFCGI_FCGI_LISTEN_HPP
#define WSI_COMMON_WSIFCGI_FCGI_LISTEN_HPP

#include <string>
#include <vector>

#include <wsi/fcgi_server.hpp>

namespace wsi {
namespace fcgi {

struct Listeners {
  std::vector<int> fds;   // non-blocking listening sockets
  std::string unix_path;  // the Unix socket this server created, removed when it stops
};

// Opens (or takes over) the listening sockets that `address` names: "unix:PATH", "tcp:HOST:PORT",
// "fd:N" or "systemd". Throws std::invalid_argument for an address of another form and
// std::system_error when a socket cannot be set up.
Listeners openListeners(const std::string& address, const FcgiOptions& options);

// Closes the sockets and removes the Unix socket file.
void closeListeners(Listeners& listeners);

}  // namespace fcgi
}  // namespace wsi

#endif  // WSI_COMMON_WSIFCGI_FCGI_LISTEN_HPP
