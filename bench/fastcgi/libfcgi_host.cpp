// The example host's answers served through libfcgi instead of wsi::FcgiServer: the comparison
// anchor of bench/fastcgi/run.sh. Each request's parameters and streams become a wsi::CgiHandle,
// so that both hosts write the same bytes through the same page code and only the FastCGI
// transport differs.
//
//   libfcgi_host unix:PATH [THREADS]
//
// THREADS threads (1 when not given) each accept, answer and finish requests, taking turns at
// accept as libfcgi's own threaded example does.
#include <fcgiapp.h>
#include <fcgio.h>
#include <sys/stat.h>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <wsi/cgi_handle.hpp>
#include "demo_routes.hpp"

namespace {

std::mutex accept_mutex;

// Answers requests on the listening socket `listen_fd` until accepting fails.
void serve(int listen_fd) {
  FCGX_Request request;
  FCGX_InitRequest(&request, listen_fd, 0);
  std::vector<char> in_buffer(8192), out_buffer(8192);
  for (;;) {
    int accepted;
    {
      std::lock_guard<std::mutex> lock(accept_mutex);
      accepted = FCGX_Accept_r(&request);
    }
    if (accepted < 0) return;
    fcgi_streambuf in_buf(request.in, in_buffer.data(), static_cast<int>(in_buffer.size()));
    fcgi_streambuf out_buf(request.out, out_buffer.data(), static_cast<int>(out_buffer.size()));
    std::istream in(&in_buf);
    std::ostream out(&out_buf);
    {
      wsi::CgiHandle handle(request.envp, in, out);
      demo::respond(handle.Request(), handle.Response());
    }
    out.flush();
    FCGX_Finish_r(&request);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3 || std::strncmp(argv[1], "unix:", 5) != 0) {
    std::cerr << "usage: libfcgi_host unix:PATH [THREADS]\n";
    return 2;
  }
  const int threads = argc == 3 ? std::atoi(argv[2]) : 1;
  if (threads < 1 || FCGX_Init() != 0) {
    std::cerr << "libfcgi_host: bad thread count or FCGX_Init failed\n";
    return 2;
  }
  const std::string path = std::string(argv[1] + 5);
  // libfcgi takes ":PORT" for TCP, anything else as a Unix socket path.
  const int listen_fd = FCGX_OpenSocket(path.c_str(), 128);
  if (listen_fd < 0) {
    std::cerr << "libfcgi_host: cannot listen on " << path << '\n';
    return 1;
  }
  std::vector<std::thread> pool;
  for (int i = 0; i < threads; ++i)
    pool.emplace_back(serve, listen_fd);
  for (std::thread& t : pool)
    t.join();
  return 0;
}
