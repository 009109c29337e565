// What the integration tests need to run real web servers and the example host: a free loopback
// port, a process started in its own process group with its output in a log file and stopped
// again by that group, waiting until something listens, and running a client to its end.
#ifndef WSI_TESTS_INTEGRATION_SERVER_PROCESS_HPP
#define WSI_TESTS_INTEGRATION_SERVER_PROCESS_HPP

#include <sys/types.h>
#include <chrono>
#include <string>
#include <vector>

namespace wsi_it {

// A TCP port on 127.0.0.1 that was free when asked: the kernel's choice for a socket bound to port
// 0, released again before returning. Throws std::runtime_error when no socket can be bound.
int freeLoopbackPort();

// A program run in the background, in a process group of its own, with `dir` as its working
// directory, standard input /dev/null and its standard output and error appended to the file
// `log`. The constructor throws std::runtime_error, naming the program and the reason, when the
// program cannot be started (a missing binary among them). Destroying the object stops the group.
class ServerProcess {
 public:
  ServerProcess(const std::vector<std::string>& argv, const std::string& dir,
                const std::string& log);
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  pid_t pid() const { return pid_; }
  // Whether the program has not ended yet.
  bool running();
  // Sends SIGTERM to the process group, waits up to `grace` for the program to end, then sends
  // SIGKILL to whatever is left of the group, and reaps the program. Returns its wait status, or
  // -1 when it had already been stopped. Only this program's group is ever signalled.
  int stop(std::chrono::milliseconds grace = std::chrono::milliseconds(5000));
  // The log file's content so far.
  std::string log() const;

 private:
  pid_t pid_ = -1;
  int status_ = -1;
  bool reaped_ = false;
  std::string log_;
};

// Whether something accepts connections on 127.0.0.1:`port` (or on the Unix socket `path`) within
// `limit`, trying every 20 ms; false as soon as `server`, when given, has ended.
bool waitForTcp(int port, std::chrono::milliseconds limit, ServerProcess* server = nullptr);
bool waitForUnixSocket(const std::string& path, std::chrono::milliseconds limit,
                       ServerProcess* server = nullptr);

// The outcome of a program run to its end.
struct RunResult {
  int exit_code;    // the exit status, or -1 when a signal ended it or it could not be started
  std::string out;  // all it wrote to standard output
  std::string err;  // all it wrote to standard error
};

// Runs `argv` to its end with standard input /dev/null, its output kept in files under `dir`.
RunResult runProgram(const std::vector<std::string>& argv, const std::string& dir);

}  // namespace wsi_it

#endif  // WSI_TESTS_INTEGRATION_SERVER_PROCESS_HPP
