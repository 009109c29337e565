#include "server_process.hpp"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <atomic>
#include <stdexcept>
#include <thread>

#include "ios_test_util.hpp"

namespace wsi_it {
namespace {

using Clock = std::chrono::steady_clock;

// A loopback IPv4 address with `port`.
sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// Whether a stream socket connects to `address` right now.
bool connects(const sockaddr* address, socklen_t size) {
  const int fd = socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const bool ok = connect(fd, address, size) == 0;
  close(fd);
  return ok;
}

// Tries `probe` every 20 ms until it succeeds (true) or `limit` has passed (false).
template <class Probe>
bool retry(std::chrono::milliseconds limit, Probe probe) {
  const Clock::time_point end = Clock::now() + limit;
  for (;;) {
    if (probe()) return true;
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

// Whether `address` accepts a connection within `limit`; false as soon as `server` (when not
// null) has ended.
bool waitToConnect(const sockaddr* address, socklen_t size, std::chrono::milliseconds limit,
                   ServerProcess* server) {
  bool ok = false;
  retry(limit, [&] {
    ok = connects(address, size);
    return ok || (server != nullptr && !server->running());
  });
  return ok;
}

// NULL-terminated pointers to the texts of `v`, for the exec functions.
std::vector<char*> pointers(std::vector<std::string>& v) {
  std::vector<char*> p;
  for (std::string& s : v)
    p.push_back(&s[0]);
  p.push_back(nullptr);
  return p;
}

// In the child: makes `fd` descriptor `target`, or ends the child reporting errno on `report`.
void moveTo(int fd, int target, int report) {
  if (fd < 0 || (fd != target && dup2(fd, target) < 0)) {
    const int e = errno;
    (void)!write(report, &e, sizeof e);
    _exit(127);
  }
  if (fd == target) fcntl(fd, F_SETFD, 0);
}

// Starts `argv` (looked up in PATH when it holds no '/') in a new process group with `dir` as its
// working directory, descriptor 0 from /dev/null, 1 from `out_fd` and 2 from `err_fd`. Returns
// its pid; throws std::runtime_error when it could not be started.
pid_t spawn(std::vector<std::string> argv, const std::string& dir, int out_fd, int err_fd) {
  if (argv.empty()) throw std::runtime_error("no program to start");
  std::vector<char*> args = pointers(argv);
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  const int null_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const pid_t pid = fork();
  if (pid == 0) {
    setpgid(0, 0);
    // Should the test program die without stopping it, the program does not outlive it.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (chdir(dir.c_str()) != 0) moveTo(-1, 0, report[1]);
    moveTo(null_fd, 0, report[1]);
    moveTo(out_fd, 1, report[1]);
    moveTo(err_fd, 2, report[1]);
    signal(SIGPIPE, SIG_DFL);
    execvp(args[0], args.data());
    moveTo(-1, 0, report[1]);
  }
  close(report[1]);
  if (null_fd >= 0) close(null_fd);
  if (pid < 0) {
    close(report[0]);
    throw std::runtime_error("fork failed for " + argv[0]);
  }
  setpgid(pid, pid);  // also here, so that the group exists before anyone signals it
  int child_errno = 0;
  const ssize_t n = read(report[0], &child_errno, sizeof child_errno);
  close(report[0]);
  if (n > 0) {
    waitpid(pid, nullptr, 0);
    throw std::runtime_error("cannot start " + argv[0] + " (in " + dir +
                             "): " + strerror(child_errno));
  }
  return pid;
}

// A descriptor appending to the file `path`; throws when it cannot be opened.
int openLog(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) throw std::runtime_error("cannot open log file " + path + ": " + strerror(errno));
  return fd;
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

bool waitForTcp(int port, std::chrono::milliseconds limit, ServerProcess* server) {
  const sockaddr_in address = loopback(port);
  return waitToConnect(reinterpret_cast<const sockaddr*>(&address), sizeof address, limit, server);
}

bool waitForUnixSocket(const std::string& path, std::chrono::milliseconds limit,
                       ServerProcess* server) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return false;
  memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return waitToConnect(reinterpret_cast<const sockaddr*>(&address), sizeof address, limit, server);
}

ServerProcess::ServerProcess(const std::vector<std::string>& argv, const std::string& dir,
                             const std::string& log)
    : log_(log) {
  const int fd = openLog(log);
  try {
    pid_ = spawn(argv, dir, fd, fd);
  } catch (...) {
    close(fd);
    throw;
  }
  close(fd);
}

ServerProcess::~ServerProcess() {
  stop();
}

bool ServerProcess::running() {
  if (reaped_) return false;
  siginfo_t info{};
  // WNOWAIT: the program stays a zombie, so its pid (the group's id) cannot be reused while the
  // group may still have members to signal.
  return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == 0;
}

int ServerProcess::stop(std::chrono::milliseconds grace) {
  if (reaped_ || pid_ <= 0) return -1;
  kill(-pid_, SIGTERM);
  retry(grace, [&] { return !running(); });
  kill(-pid_, SIGKILL);  // what is left of this group only, the leader included
  waitpid(pid_, &status_, 0);
  reaped_ = true;
  return status_;
}

std::string ServerProcess::log() const {
  return wsi_test::readFile(log_);
}

RunResult runProgram(const std::vector<std::string>& argv, const std::string& dir) {
  static std::atomic<int> counter{0};
  const std::string base = dir + "/run-" + std::to_string(counter++);
  RunResult result{-1, std::string(), std::string()};
  const int out = openLog(base + ".out"), err = openLog(base + ".err");
  pid_t pid = -1;
  try {
    pid = spawn(argv, dir, out, err);
  } catch (const std::exception& e) {
    result.err = e.what();
  }
  close(out);
  close(err);
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status))
    result.exit_code = WEXITSTATUS(status);
  result.out = wsi_test::readFile(base + ".out");
  if (pid > 0) result.err = wsi_test::readFile(base + ".err");
  return result;
}

}  // namespace wsi_it
