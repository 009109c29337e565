// The FastCGI back end: a responder that web servers (nginx, lighttpd, Apache) reach over a Unix
// or TCP socket. The host calls accept() from as many threads as it likes; each call returns the
// next request as a handle, which the host serves like any other and gives back with release().
// Idle kept-alive connections wait in one epoll set, never on a thread. The library starts no
// thread and installs no signal handler.
#ifndef WSI_FCGI_SERVER_HPP
#define WSI_FCGI_SERVER_HPP

#include <string>

#include <wsi/export.h>
#include <wsi/interface.hpp>

namespace wsi {

// Settings of a FastCGI server. The defaults suit a server behind nginx, lighttpd or Apache on
// the same machine.
struct FcgiOptions {
  // Connections open at once; beyond this the listening sockets are not watched, so further
  // web server connections wait in the kernel's backlog.
  unsigned max_connections = 512;
  // The access mode of a Unix socket this server creates.
  unsigned unix_socket_mode = 0660;
  // The backlog of a socket this server creates.
  int listen_backlog = 128;
  // From the first byte of a request to the end of its parameters, in milliseconds.
  unsigned params_timeout_ms = 30000;
  // The longest wait for posted data, in milliseconds.
  unsigned read_timeout_ms = 60000;
  // The longest wait for the web server to take response bytes, in milliseconds.
  unsigned write_timeout_ms = 60000;
  // A kept-alive connection with no request is closed after this many milliseconds: longer
  // than nginx's 60 s upstream keep-alive, so that the web server closes first and never
  // reuses a connection that is being closed.
  unsigned idle_timeout_ms = 75000;
  // The parameters of one request: all names and values together, one name or value, and
  // their count.
  unsigned max_param_bytes = 256 * 1024;
  unsigned max_name_value_bytes = 64 * 1024;
  unsigned max_param_count = 1000;
  // Posted data that the host left unread is read and dropped up to this many bytes so that the
  // connection can serve the next request; beyond it the connection is closed.
  unsigned long max_drain_bytes = 1024 * 1024;
};

class WSI_API FcgiServer {
 public:
  // Listens on `address`:
  //   "unix:PATH"      a Unix socket created at PATH (a stale socket there is replaced),
  //   "tcp:HOST:PORT"  a TCP socket, HOST a name or address; IPv6 as "tcp:[::1]:9000",
  //   "fd:N"           the inherited listening socket N ("fd:0" as spawn-fcgi and lighttpd
  //                    hand it over),
  //   "systemd"        the sockets of systemd's socket activation (LISTEN_PID, LISTEN_FDS).
  // Throws std::invalid_argument for an address of another form and std::system_error when the
  // socket cannot be set up.
  explicit FcgiServer(const std::string& address, const FcgiOptions& options = FcgiOptions());
  // Closes every socket and removes a Unix socket it created. Call it only after every thread
  // has returned from accept() and every handle was released.
  ~FcgiServer();

  // Waits for the next request and returns its handle, or null once the server was stopped. Any
  // number of threads may call it at once; each handle is served by the thread that got it.
  Handle* accept();
  // Gives back a handle from accept(): ends a response that was not ended, reads and drops
  // posted data the host left unread, and keeps the connection for the next request when the
  // web server asked for it and the exchange completed; otherwise closes it.
  void release(Handle* handle);
  // Stops the server; safe to call from a signal handler and from any thread. The listening
  // sockets close, idle connections close, requests in flight finish, and from then on accept()
  // returns null in every thread.
  void stop();

 private:
  FcgiServer(const FcgiServer&);
  FcgiServer& operator=(const FcgiServer&);

  struct State;
  State* state_;
};

}  // namespace wsi

#endif  // WSI_FCGI_SERVER_HPP
