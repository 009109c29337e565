// wsi_peer: plays the web server's side of the connector. It starts a host program with one end
// of a socket pair, sends it one request message for each request configuration given (the
// stream back end's text format, with its posted data), and prints each response as the HTTP/1.1
// text the stream back end would have written.
//
//   wsi_peer [-o OUTPUT] [-f FRAME] [-t MS] -c CONFIG [-d POSTED] [-c CONFIG [-d POSTED]]...
//            -- HOST [ARGS...]
//
// The host finds its end of the connection in the environment variable WSI_CONNECTOR_FD (a
// descriptor number). All requests go out on the one connection, then the tool closes its
// sending side: the host sees the connection end (error code 17) and should exit.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <qco/qco.hpp>
#include <wsi/ios_handle.hpp>
#include "peer_records.hpp"

namespace {

const char kUsage[] =
    "usage: wsi_peer [-o OUTPUT] [-f FRAME] [-t MS] -c CONFIG [-d POSTED] [-c CONFIG [-d "
    "POSTED]]... -- HOST [ARGS...]\n"
    "  -c CONFIG  a request configuration (the streams back end's format); one request each\n"
    "  -d POSTED  the posted data of the request named just before (default: none)\n"
    "  -o OUTPUT  write the responses there instead of to standard output\n"
    "  -f FRAME   send requests in frames of at most FRAME bytes (default: the connector's)\n"
    "  -t MS      how long a response may pause inside its message (default: 30000)\n"
    "  The host gets its end of the connection as descriptor $WSI_CONNECTOR_FD; its standard\n"
    "  output goes to standard error.\n";

struct RequestFiles {
  std::string config;
  std::string posted;  // empty: no posted data
};

struct Options {
  std::vector<RequestFiles> requests;
  std::string output;
  unsigned long frame = 0;  // 0: let the connector cut frames
  int timeout_ms = qco::QorvaConnector::default_timeout_ms;
  std::vector<char*> host;  // null-terminated
};

bool parseNumber(const char* text, unsigned long& value) {
  char* end = nullptr;
  errno = 0;
  value = std::strtoul(text, &end, 10);
  return errno == 0 && end != text && *end == '\0' && text[0] != '-';
}

// Reads the command line; false with a message on a usage error.
bool parseOptions(int argc, char** argv, Options& o, std::string& error) {
  int i = 1;
  for (; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
    const std::string opt = argv[i];
    if (i + 1 >= argc) {
      error = "option " + opt + " needs a value";
      return false;
    }
    const char* value = argv[++i];
    unsigned long number = 0;
    if (opt == "-c") {
      o.requests.push_back(RequestFiles{value, std::string()});
    } else if (opt == "-d" && !o.requests.empty()) {
      o.requests.back().posted = value;
    } else if (opt == "-o") {
      o.output = value;
    } else if (opt == "-f" && parseNumber(value, number) && number > 0) {
      o.frame = number;
    } else if (opt == "-t" && parseNumber(value, number) && number > 0 && number < 1u << 30) {
      o.timeout_ms = static_cast<int>(number);
    } else {
      error = "unexpected " + opt + " " + value;
      return false;
    }
  }
  if (o.requests.empty()) error = "no request (-c CONFIG)";
  if (i + 1 >= argc) error = "no host program after --";
  if (!error.empty()) return false;
  o.host.assign(argv + i + 1, argv + argc);
  o.host.push_back(nullptr);
  return true;
}

// The record block of the request that `config_name` describes, read by the library's own
// configuration reader.
bool requestBlock(const std::string& config_name, std::string& block, std::string& error) {
  std::ifstream config(config_name.c_str());
  if (!config) {
    error = "cannot read the request configuration '" + config_name + "'";
    return false;
  }
  std::istringstream no_posted_data;
  std::ostringstream unused_output;
  wsi::IosHandle handle(config, no_posted_data, unused_output);
  if (!peer::encodeRequestBlock(handle.Request(), block, error)) {
    error = config_name + ": " + error;
    return false;
  }
  return true;
}

// Writes a request's payload to the connector stream, flushing every `frame` bytes so that each
// piece goes out as a frame of its own (frame 0: the connector cuts the frames).
class PayloadWriter {
 public:
  PayloadWriter(std::ostream& out, unsigned long frame) : out_(out), frame_(frame), filled_(0) {}
  void write(const char* p, unsigned long n) {
    while (n > 0 && out_) {
      unsigned long piece = n;
      if (frame_ > 0 && piece > frame_ - filled_) piece = frame_ - filled_;
      out_.write(p, static_cast<std::streamsize>(piece));
      p += piece;
      n -= piece;
      filled_ += piece;
      if (frame_ > 0 && filled_ == frame_) {
        out_.flush();
        filled_ = 0;
      }
    }
  }

 private:
  std::ostream& out_;
  unsigned long frame_;
  unsigned long filled_;
};

// Sends every request message, then closes the sending side. The blocks were built beforehand;
// the posted data is read from its file piece by piece. Returns an error text, empty on success.
std::string sendRequests(const qco::QorvaConnector& sender, std::iostream& stream, const Options& o,
                         const std::vector<std::string>& blocks, int fd) {
  std::string error;
  for (std::size_t i = 0; i < blocks.size() && error.empty(); ++i) {
    PayloadWriter writer(stream, o.frame);
    writer.write(blocks[i].data(), blocks[i].size());
    if (!o.requests[i].posted.empty()) {
      std::ifstream posted(o.requests[i].posted.c_str(), std::ios::binary);
      char buf[65536];
      while (posted.read(buf, sizeof buf) || posted.gcount() > 0)
        writer.write(buf, static_cast<unsigned long>(posted.gcount()));
    }
    const int code = sender.EndMessage();
    if (code != 0)
      error = "request " + std::to_string(i + 1) +
              " could not be sent: " + qco::QorvaConnector::ErrorNameOf(code);
  }
  shutdown(fd, SHUT_WR);
  return error;
}

// Reads one response per request and prints it. Returns an error text, empty on success.
std::string receiveResponses(const qco::QorvaConnector& receiver, std::iostream& stream,
                             std::size_t count, std::ostream& out) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::string which = "response " + std::to_string(i + 1) + ": ";
    std::string error;
    if (!peer::decodeResponse(stream, out, error) || receiver.lastError() != 0) {
      const int code = receiver.lastError();
      return which + (code != 0 ? qco::QorvaConnector::ErrorNameOf(code) : error);
    }
    const int code = receiver.SkipRestOfMessage();
    if (code != 0) return which + qco::QorvaConnector::ErrorNameOf(code);
  }
  out.flush();
  return out ? std::string() : "the responses could not be written out";
}

// Starts the host with `host_fd` as its end of the connection. Returns its process id, or -1.
pid_t startHost(const Options& o, int host_fd) {
  setenv("WSI_CONNECTOR_FD", std::to_string(host_fd).c_str(), 1);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  // The child: keep the host's end across exec, send its standard output to standard error.
  fcntl(host_fd, F_SETFD, 0);
  dup2(2, 1);
  execvp(o.host[0], o.host.data());
  std::cerr << "wsi_peer: cannot start '" << o.host[0] << "': " << std::strerror(errno) << '\n';
  _exit(127);
}

// Waits for the host; true when it exited with status 0.
bool hostSucceeded(pid_t pid, std::string& error) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
  error = WIFEXITED(status) ? "the host exited with status " + std::to_string(WEXITSTATUS(status))
                            : "the host ended with signal " + std::to_string(WTERMSIG(status));
  return false;
}

int run(const Options& o, std::ostream& out) {
  std::vector<std::string> blocks(o.requests.size());
  for (std::size_t i = 0; i < o.requests.size(); ++i) {
    std::string error;
    if (!requestBlock(o.requests[i].config, blocks[i], error)) {
      std::cerr << "wsi_peer: " << error << '\n';
      return 2;
    }
  }
  int fds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
    std::cerr << "wsi_peer: socketpair: " << std::strerror(errno) << '\n';
    return 1;
  }
  const pid_t pid = startHost(o, fds[1]);
  close(fds[1]);
  if (pid < 0) {
    std::cerr << "wsi_peer: fork: " << std::strerror(errno) << '\n';
    close(fds[0]);
    return 1;
  }

  // One connector for each direction, so that sending and receiving run side by side and a host
  // that answers before it has read everything never blocks against the tool.
  qco::QorvaConnector sender(fds[0]);
  qco::QorvaConnector receiver(fds[0]);
  sender.setTimeout(o.timeout_ms);
  receiver.setTimeout(o.timeout_ms);
  std::string send_error;
  std::thread sending(
      [&] { send_error = sendRequests(sender, sender.stream(), o, blocks, fds[0]); });
  const std::string receive_error =
      receiveResponses(receiver, receiver.stream(), blocks.size(), out);
  if (!receive_error.empty()) shutdown(fds[0], SHUT_RDWR);  // unblocks the sending side
  sending.join();
  close(fds[0]);

  std::string host_error;
  const bool host_ok = hostSucceeded(pid, host_error);
  for (const std::string& e : {receive_error, send_error, host_error}) {
    if (!e.empty()) std::cerr << "wsi_peer: " << e << '\n';
  }
  return receive_error.empty() && send_error.empty() && host_ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  std::string error;
  if (!parseOptions(argc, argv, o, error)) {
    std::cerr << "wsi_peer: " << error << '\n' << kUsage;
    return 2;
  }
  for (const RequestFiles& r : o.requests) {
    if (!r.posted.empty() && !std::ifstream(r.posted.c_str())) {
      std::cerr << "wsi_peer: cannot read the posted data '" << r.posted << "'\n";
      return 2;
    }
  }
  if (o.output.empty()) return run(o, std::cout);
  std::ofstream out(o.output.c_str(), std::ios::binary | std::ios::trunc);
  if (!out) {
    std::cerr << "wsi_peer: cannot write '" << o.output << "'\n";
    return 2;
  }
  return run(o, out);
}
