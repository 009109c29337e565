#include "server_process.hpp"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <stdexcept>
#include <thread>

namespace wsi_it {
namespace {

using Clock = std::chrono::steady_clock;

// Tries `probe` every 20 ms until it succeeds (true) or `limit` has passed (false).
template <class Probe>
bool retry(std::chrono::milliseconds limit, Probe probe) {
  const Clock::time_point end = Clock::now() + limit;
  while (!probe()) {
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

// Whether a stream socket connects to `address` (a sockaddr_in or sockaddr_un) within 10 s;
// false as soon as `server` has ended.
template <class Address>
bool waitToConnect(const Address& address, ServerProcess& server) {
  const sockaddr* to = reinterpret_cast<const sockaddr*>(&address);
  bool connected = false;
  retry(std::chrono::milliseconds(10000), [&] {
    const int fd = socket(to->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    connected = fd >= 0 && connect(fd, to, sizeof address) == 0;
    if (fd >= 0) close(fd);
    return connected || !server.running();
  });
  return connected;
}

// A loopback IPv4 address with `port`.
sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

int freeLoopbackPort() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    if (fd >= 0) close(fd);
    throw std::runtime_error(std::string("cannot bind a loopback socket: ") + strerror(errno));
  }
  close(fd);
  return ntohs(address.sin_port);
}

bool waitForTcp(int port, ServerProcess& server) {
  return waitToConnect(loopback(port), server);
}

bool waitForUnixSocket(const std::string& path, ServerProcess& server) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return false;
  memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return waitToConnect(address, server);
}

ServerProcess::ServerProcess(std::vector<std::string> argv, const std::string& dir,
                             const std::string& log) {
  std::vector<char*> args;
  for (std::string& arg : argv)
    args.push_back(&arg[0]);
  args.push_back(nullptr);
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("cannot fork for " + argv.at(0) + ": " + strerror(errno));
  if (pid_ == 0) {
    setpgid(0, 0);
    // Should the test program die without stopping it, the program does not outlive it.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (out < 0 || dup2(out, 1) < 0 || dup2(out, 2) < 0) _exit(126);
    if (in >= 0 && dup2(in, 0) == 0 && chdir(dir.c_str()) == 0) {
      signal(SIGPIPE, SIG_DFL);
      execvp(args[0], args.data());
    }
    dprintf(2, "cannot start %s (in %s): %s\n", args[0], dir.c_str(), strerror(errno));
    _exit(127);
  }
  setpgid(pid_, pid_);  // also here, so that the group exists before anyone signals it
}

bool ServerProcess::running() {
  if (reaped_) return false;
  siginfo_t info{};
  // WNOWAIT: the program stays a zombie, so its pid (the group's id) cannot be reused while the
  // group may still have members to signal.
  return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == 0;
}

void ServerProcess::stop(std::chrono::milliseconds grace) {
  if (reaped_) return;
  kill(-pid_, SIGTERM);
  retry(grace, [&] { return !running(); });
  kill(-pid_, SIGKILL);  // what is left of this group only, the leader included
  waitpid(pid_, nullptr, 0);
  reaped_ = true;
}

}  // namespace wsi_it
