// The example host served by real web servers, each started from the configuration templates in
// tests/integration/conf (the configurations docs/serving.md shows), in a directory of its own
// and on a free loopback port.
#ifndef WSI_TESTS_INTEGRATION_WEB_SERVERS_HPP
#define WSI_TESTS_INTEGRATION_WEB_SERVERS_HPP

#include <memory>
#include <string>
#include <vector>

#include "ios_test_util.hpp"
#include "server_process.hpp"

namespace wsi_it {

// `text` with every `key` replaced by `value` (replacements are not searched again).
std::string replaced(std::string text, const std::string& key, const std::string& value);

// One web server with the example hosts behind it, stopped (the hosts too) when destroyed.
class WebServer {
 public:
  // Starts the set-up named `setup` in tests/data/web_server_setups.tsv with `hosts` host
  // processes of 2 threads each (nginx only may have more than one), and waits until the server
  // and the hosts listen. Throws std::runtime_error with the logs when anything fails to start,
  // a missing server program included.
  explicit WebServer(const std::string& setup, int hosts = 1);

  int port() const { return port_; }
  const wsi_test::TempDir& dir() const { return dir_; }
  // The Unix socket of host `i` (nginx and Apache).
  std::string hostSocket(int i) const { return dir_ / ("host" + std::to_string(i) + ".sock"); }
  // Every log the server and the hosts have written so far, for failure messages.
  std::string logs() const;

 private:
  wsi_test::TempDir dir_;
  int port_;
  std::vector<std::unique_ptr<ServerProcess>> hosts_;
  std::unique_ptr<ServerProcess> server_;
};

}  // namespace wsi_it

#endif  // WSI_TESTS_INTEGRATION_WEB_SERVERS_HPP
