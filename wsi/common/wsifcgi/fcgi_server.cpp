// The FastCGI server: listening sockets and idle connections in one epoll set, served by whichever
// host threads call accept().
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <system_error>
#include <utility>

#include <wsi/fcgi_server.hpp>
#include <wx/log.hpp>
#include "wsi/common/wsifcgi/fcgi_connection.hpp"
#include "wsi/common/wsifcgi/fcgi_handle.hpp"
#include "wsi/common/wsifcgi/fcgi_listen.hpp"

namespace wsi {

namespace {

// epoll tags: the stop event, then the listening sockets (1 + their index), then connections.
const std::uint64_t kStopTag = 0;
const std::uint64_t kFirstConnectionTag = std::uint64_t(1) << 32;
// The longest single wait in epoll, so that time-outs are looked at at least this often.
const int kMaxWaitMs = 1000;

// Locks a mutex for the lifetime of the object.
class Lock {
 public:
  explicit Lock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
  ~Lock() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t& mutex_;
};

}  // namespace

struct WSI_LOCAL FcgiServer::State {
  typedef std::map<std::uint64_t, std::unique_ptr<fcgi::Connection>> Connections;

  explicit State(const FcgiOptions& opts);
  ~State();

  // All of the following run with `mutex` held.
  // Closes connections whose time ran out, and watches the listening sockets again when there is
  // room for connections.
  void sweep(std::int64_t now);
  // How long a thread may wait in epoll before the next time-out.
  int waitTime(std::int64_t now) const;
  // Takes the connection tagged `tag` for the calling thread; null when it is gone.
  fcgi::Connection* take(std::uint64_t tag);
  // Puts a connection back into the epoll set to wait for its next bytes, or closes it.
  void park(fcgi::Connection& connection, std::int64_t now);
  void drop(fcgi::Connection& connection);
  // Accepts every waiting connection of listening socket `fd` while there is room.
  void acceptFrom(int fd);
  // Watches or stops watching the listening sockets.
  void watchListeners(bool on);
  // Stops for good: listening sockets and idle connections close.
  void shutDown();
  void logFailure(int line, const char* format, const char* detail);

  FcgiOptions options;
  fcgi::Listeners listeners;
  int epoll_fd;
  int stop_fd;
  pthread_mutex_t mutex;
  Connections connections;
  std::set<std::pair<std::int64_t, std::uint64_t>> deadlines;  // of waiting connections
  std::uint64_t next_id;
  bool stopped;
  bool watching;
  wx::log::log* plog;
};

FcgiServer::State::State(const FcgiOptions& opts)
    : options(opts),
      epoll_fd(-1),
      stop_fd(-1),
      next_id(kFirstConnectionTag),
      stopped(false),
      watching(true),
      plog(Handle::plog_) {
  pthread_mutex_init(&mutex, nullptr);
}

FcgiServer::State::~State() {
  connections.clear();
  fcgi::closeListeners(listeners);
  if (epoll_fd >= 0) ::close(epoll_fd);
  if (stop_fd >= 0) ::close(stop_fd);
  pthread_mutex_destroy(&mutex);
}

void FcgiServer::State::logFailure(int line, const char* format, const char* detail) {
  if (plog && plog->admits<3>())
    plog->Log<3>(fcgi::kLogSource, line, "wsi::FcgiServer", format, detail);
}

void FcgiServer::State::sweep(std::int64_t now) {
  while (!deadlines.empty() && deadlines.begin()->first <= now) {
    Connections::iterator it = connections.find(deadlines.begin()->second);
    deadlines.erase(deadlines.begin());
    if (it == connections.end()) continue;
    if (it->second->started_ms != 0) {
      logFailure(__LINE__, "FastCGI connection closed: %s",
                 "the parameters did not arrive in time");
    } else if (plog && plog->admits<7>()) {
      plog->Log<7>(fcgi::kLogSource, __LINE__, "wsi::FcgiServer",
                   "Idle FastCGI connection closed.");
    }
    connections.erase(it);
  }
  if (!watching && !stopped && connections.size() < options.max_connections) watchListeners(true);
}

int FcgiServer::State::waitTime(std::int64_t now) const {
  if (deadlines.empty()) return kMaxWaitMs;
  const std::int64_t left = deadlines.begin()->first - now;
  return left < 0 ? 0 : left > kMaxWaitMs ? kMaxWaitMs : static_cast<int>(left);
}

fcgi::Connection* FcgiServer::State::take(std::uint64_t tag) {
  Connections::iterator it = connections.find(tag);
  if (it == connections.end() || it->second->busy) return nullptr;
  fcgi::Connection& connection = *it->second;
  deadlines.erase(std::make_pair(connection.deadline_ms, connection.id));
  connection.busy = true;
  return &connection;
}

void FcgiServer::State::park(fcgi::Connection& connection, std::int64_t now) {
  if (stopped || connection.broken()) return drop(connection);
  if (connection.codec().idle()) {
    connection.started_ms = 0;
    connection.deadline_ms = now + options.idle_timeout_ms;
  } else {
    if (connection.started_ms == 0) connection.started_ms = now;
    connection.deadline_ms = connection.started_ms + options.params_timeout_ms;
  }
  epoll_event event;
  event.events = EPOLLIN | EPOLLONESHOT;
  event.data.u64 = connection.id;
  const int op = connection.busy ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
  if (epoll_ctl(epoll_fd, op, connection.fd(), &event) != 0) {
    logFailure(__LINE__, "FastCGI connection closed: epoll failed: %s", std::strerror(errno));
    return drop(connection);
  }
  connection.busy = false;
  deadlines.insert(std::make_pair(connection.deadline_ms, connection.id));
}

void FcgiServer::State::drop(fcgi::Connection& connection) {
  if (!connection.busy) deadlines.erase(std::make_pair(connection.deadline_ms, connection.id));
  connections.erase(connection.id);
  if (!watching && !stopped && connections.size() < options.max_connections) watchListeners(true);
}

void FcgiServer::State::acceptFrom(int fd) {
  while (!stopped && connections.size() < options.max_connections) {
    const int client = accept4(fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (client < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK) return;
      if (errno == EINTR || errno == ECONNABORTED) continue;
      // Out of descriptors or memory: wait for connections to close (or the next sweep).
      logFailure(__LINE__, "FastCGI connection not accepted: %s", std::strerror(errno));
      break;
    }
    const int on = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on,
               sizeof on);  // fails harmlessly on Unix sockets
    std::unique_ptr<fcgi::Connection> connection(new fcgi::Connection(client, options));
    connection->id = next_id++;
    fcgi::Connection& added = *connection;
    connections[added.id] = std::move(connection);
    park(added, fcgi::monotonicMs());
  }
  watchListeners(false);
}

void FcgiServer::State::watchListeners(bool on) {
  if (watching == on) return;
  watching = on;
  for (std::size_t i = 0; i < listeners.fds.size(); ++i) {
    epoll_event event;
    event.events = on ? static_cast<std::uint32_t>(EPOLLIN) : 0u;
    event.data.u64 = i + 1;
    epoll_ctl(epoll_fd, EPOLL_CTL_MOD, listeners.fds[i], &event);
  }
}

void FcgiServer::State::shutDown() {
  if (stopped) return;
  stopped = true;
  fcgi::closeListeners(listeners);
  for (Connections::iterator it = connections.begin(); it != connections.end();) {
    if (it->second->busy) {
      ++it;
      continue;
    }
    deadlines.erase(std::make_pair(it->second->deadline_ms, it->first));
    it = connections.erase(it);
  }
  if (plog && plog->admits<7>())
    plog->Log<7>(fcgi::kLogSource, __LINE__, "wsi::FcgiServer", "FastCGI server stopped.");
}

FcgiServer::FcgiServer(const std::string& address, const FcgiOptions& options) : state_(nullptr) {
  pthread_once(&Handle::init_log_once_, &Handle::_initLogOnce);
  std::unique_ptr<State> state(new State(options));
  state->listeners = fcgi::openListeners(address, options);
  state->epoll_fd = epoll_create1(EPOLL_CLOEXEC);
  state->stop_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (state->epoll_fd < 0 || state->stop_fd < 0)
    throw std::system_error(errno, std::generic_category(), "cannot set up the FastCGI server");
  epoll_event event;
  event.events = EPOLLIN;
  event.data.u64 = kStopTag;
  bool added = epoll_ctl(state->epoll_fd, EPOLL_CTL_ADD, state->stop_fd, &event) == 0;
  for (std::size_t i = 0; added && i < state->listeners.fds.size(); ++i) {
    event.data.u64 = i + 1;
    added = epoll_ctl(state->epoll_fd, EPOLL_CTL_ADD, state->listeners.fds[i], &event) == 0;
  }
  if (!added) throw std::system_error(errno, std::generic_category(), "cannot watch the sockets");
  state_ = state.release();
}

FcgiServer::~FcgiServer() {
  delete state_;
}

Handle* FcgiServer::accept() {
  State& s = *state_;
  for (;;) {
    int timeout;
    {
      Lock lock(s.mutex);
      if (s.stopped) return nullptr;
      const std::int64_t now = fcgi::monotonicMs();
      s.sweep(now);
      timeout = s.waitTime(now);
    }
    epoll_event event;
    const int n = epoll_wait(s.epoll_fd, &event, 1, timeout);
    if (n < 0 && errno != EINTR) {
      s.logFailure(__LINE__, "FastCGI server failed: epoll: %s", std::strerror(errno));
      return nullptr;
    }
    if (n <= 0) continue;
    if (event.data.u64 == kStopTag) {
      Lock lock(s.mutex);
      s.shutDown();
      return nullptr;
    }
    if (event.data.u64 < kFirstConnectionTag) {
      Lock lock(s.mutex);
      if (!s.stopped) s.acceptFrom(s.listeners.fds[event.data.u64 - 1]);
      continue;
    }
    fcgi::Connection* connection;
    {
      Lock lock(s.mutex);
      connection = s.take(event.data.u64);
    }
    if (connection == nullptr) continue;
    // Reading happens outside the lock; the connection belongs to this thread now.
    if (connection->receiveAvailable() && connection->codec().requestReady() &&
        !connection->codec().aborted()) {
      connection->started_ms = 0;
      try {
        Handle* handle = new FcgiHandle(*connection);
        if (s.plog && s.plog->admits<7>())
          s.plog->Log<7>(fcgi::kLogSource, __LINE__, "wsi::FcgiServer::accept",
                         "FastCGI request %u on connection %d.",
                         static_cast<unsigned>(connection->codec().requestId()), connection->fd());
        return handle;
      } catch (const std::exception& e) {
        s.logFailure(__LINE__, "FastCGI request not served: %s", e.what());
        connection->markBroken();
      }
    }
    if (connection->codec().aborted()) connection->markBroken();
    Lock lock(s.mutex);
    s.park(*connection, fcgi::monotonicMs());
  }
}

void FcgiServer::release(Handle* handle) {
  if (handle == nullptr) return;
  FcgiHandle* fcgi_handle = static_cast<FcgiHandle*>(handle);
  fcgi::Connection& connection = fcgi_handle->connection();
  const bool reuse = fcgi_handle->finish();
  delete fcgi_handle;
  if (reuse) {
    connection.codec().endRequest();
  } else {
    connection.markBroken();
  }
  Lock lock(state_->mutex);
  state_->park(connection, fcgi::monotonicMs());
}

void FcgiServer::stop() {
  const int saved = errno;
  const std::uint64_t one = 1;
  const ssize_t written = write(state_->stop_fd, &one, sizeof one);
  static_cast<void>(written);
  errno = saved;
}

}  // namespace wsi
