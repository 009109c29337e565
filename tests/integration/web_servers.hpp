// The example host served by real web servers, each started from the configuration templates in
// tests/integration/conf (the configurations docs/serving.md shows), in a directory of its own
// and on a free loopback port.
#ifndef WSI_TESTS_INTEGRATION_WEB_SERVERS_HPP
#define WSI_TESTS_INTEGRATION_WEB_SERVERS_HPP

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/integration/server_process.hpp"
#include "tests/ios_test_util.hpp"

namespace wsi_it {

// How the example host is served (in the order of the recipes in web_servers.cpp).
enum class Frontend {
  nginx,             // nginx, FastCGI over Unix sockets to hosts started here
  lighttpd_fastcgi,  // lighttpd, starting the host itself on descriptor 0
  lighttpd_cgi,      // lighttpd's mod_cgi, one host process per request
  apache,            // Apache's mod_proxy_fcgi, FastCGI over a Unix socket to a host started here
};

// `text` with every `key` replaced by `value` (replacements are not searched again).
std::string replaced(std::string text, const std::string& key, const std::string& value);

// The name of `setup` as test names show it.
std::string nameOf(Frontend setup);
// How GoogleTest prints a set-up in a test's parameter.
inline void PrintTo(Frontend setup, std::ostream* out) {
  *out << nameOf(setup);
}

// One web server with the example hosts behind it, stopped (the hosts too) when destroyed.
class WebServer {
 public:
  // Starts `setup` with `hosts` host processes of `threads` threads each (nginx only may have
  // more than one host), and waits until the server and the hosts listen. Throws
  // std::runtime_error with the logs when anything fails to start: a missing server binary
  // included.
  WebServer(Frontend setup, int threads = 2, int hosts = 1);

  int port() const { return port_; }
  const std::string& dir() const { return dir_path_; }
  // The Unix socket of host `i` (nginx and Apache).
  std::string hostSocket(int i) const;
  // What the server and the hosts have logged so far, for failure messages.
  std::string logs() const;
  // What the hosts have written to their standard error so far.
  std::string hostErrors() const;

 private:
  void startHost(int i, int threads);
  void startServer(Frontend setup, int hosts);

  wsi_test::TempDir dir_;
  std::string dir_path_;
  int port_ = 0;
  std::vector<std::unique_ptr<ServerProcess>> hosts_;
  std::unique_ptr<ServerProcess> server_;
  std::string server_log_;
};

// A curl run against the server on 127.0.0.1:`port`: `args` (its options) and the path.
struct Response {
  int curl_exit;
  int status;           // the last status line's code, 0 when there was none
  std::string headers;  // the header block of the last response, as received
  std::string body;
  std::string error;  // curl's standard error
};
Response fetch(int port, const std::string& path, const std::vector<std::string>& args,
               const std::string& dir);

}  // namespace wsi_it

#endif  // WSI_TESTS_INTEGRATION_WEB_SERVERS_HPP
