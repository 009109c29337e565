// What the integration tests need to run real web servers and the example host: a free loopback
// port, a program started in a process group of its own and stopped again by that group, and
// waiting until something listens.
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
// `log`. A program that cannot be started ends at once, the reason written to `log`. Destroying
// the object stops the group.
class ServerProcess {
 public:
  ServerProcess(std::vector<std::string> argv, const std::string& dir, const std::string& log);
  ~ServerProcess() { stop(); }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  // Whether the program has not ended yet.
  bool running();
  // Sends SIGTERM to the process group, waits up to `grace` for the program to end, then sends
  // SIGKILL to whatever is left of the group, and reaps the program. Only this program's group is
  // ever signalled; once the program is reaped, stop() does nothing.
  void stop(std::chrono::milliseconds grace = std::chrono::milliseconds(5000));

 private:
  pid_t pid_;
  bool reaped_ = false;
};

// Whether something accepts connections on 127.0.0.1:`port` (or on the Unix socket `path`) within
// 10 s, trying every 20 ms; false as soon as `server` has ended.
bool waitForTcp(int port, ServerProcess& server);
bool waitForUnixSocket(const std::string& path, ServerProcess& server);

}  // namespace wsi_it

#endif  // WSI_TESTS_INTEGRATION_SERVER_PROCESS_HPP
