#include "web_servers.hpp"

#include <sys/stat.h>
#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace wsi_it {
namespace {

const std::chrono::milliseconds kStartLimit(10000);

// The template tests/integration/conf/`name` with every @KEY@ of `values` replaced.
std::string configuration(const std::string& name,
                          const std::vector<std::pair<std::string, std::string>>& values) {
  const std::string path = std::string(WSI_IT_CONF) + "/" + name;
  std::string text = wsi_test::readFile(path);
  if (text.empty()) throw std::runtime_error("cannot read the configuration template " + path);
  for (const auto& kv : values)
    text = replaced(text, "@" + kv.first + "@", kv.second);
  return text;
}

// How one set-up is started: its name, the server program, its configuration template, the
// error log it writes in its directory, and its arguments after the program ("@CONF@" stands for
// the configuration file, "@DIR@" for the directory).
struct Recipe {
  const char* name;
  const char* program;
  const char* conf;
  const char* error_log;
  const char* args;  // separated by blanks
};

const Recipe& recipeOf(Frontend setup) {
  static const Recipe recipes[] = {
      {"nginx", "/usr/sbin/nginx", "nginx.conf", "nginx-error.log", "-p @DIR@/ -c @CONF@"},
      {"lighttpd_fastcgi", "/usr/sbin/lighttpd", "lighttpd-fastcgi.conf", "lighttpd-error.log",
       "-D -f @CONF@"},
      {"lighttpd_cgi", "/usr/sbin/lighttpd", "lighttpd-cgi.conf", "lighttpd-error.log",
       "-D -f @CONF@"},
      {"apache", "/usr/sbin/apache2", "apache.conf", "apache-error.log", "-X -f @CONF@"},
  };
  return recipes[static_cast<int>(setup)];
}

}  // namespace

std::string replaced(std::string text, const std::string& key, const std::string& value) {
  for (std::size_t at = text.find(key); at != std::string::npos;
       at = text.find(key, at + value.size()))
    text.replace(at, key.size(), value);
  return text;
}

std::string nameOf(Frontend setup) {
  return recipeOf(setup).name;
}

WebServer::WebServer(Frontend setup, int threads, int hosts) : dir_path_(dir_ / "") {
  dir_path_.pop_back();  // no trailing '/'
  std::filesystem::create_directories(dir_ / "tmp");
  const bool own_hosts = setup == Frontend::nginx || setup == Frontend::apache;
  for (int i = 0; own_hosts && i < hosts; ++i)
    startHost(i, threads);
  startServer(setup, hosts);
}

std::string WebServer::hostSocket(int i) const {
  return dir_ / ("host" + std::to_string(i) + ".sock");
}

void WebServer::startHost(int i, int threads) {
  const std::string socket = hostSocket(i);
  hosts_.emplace_back(new ServerProcess(
      {WSI_DEMO, "--fastcgi", "unix:" + socket, "--threads", std::to_string(threads)}, dir_path_,
      dir_ / ("host" + std::to_string(i) + ".log")));
  if (!waitForUnixSocket(socket, kStartLimit, hosts_.back().get()))
    throw std::runtime_error("the host does not listen on " + socket + "\n" + logs());
}

void WebServer::startServer(Frontend setup, int hosts) {
  std::string servers;
  for (int i = 0; i < hosts; ++i)
    servers += "server unix:" + hostSocket(i) + ";\n    ";
  port_ = freeLoopbackPort();
  const std::vector<std::pair<std::string, std::string>> values = {{"DIR", dir_path_},
                                                                   {"PORT", std::to_string(port_)},
                                                                   {"DEMO", WSI_DEMO},
                                                                   {"HOSTS", servers},
                                                                   {"SOCKET", hostSocket(0)}};
  const std::string conf = dir_ / "server.conf";
  const Recipe& recipe = recipeOf(setup);
  if (setup == Frontend::lighttpd_cgi) {
    wsi_test::writeFile(dir_ / "demo.cgi", "#!/bin/sh\nexec '" WSI_DEMO "' --cgi\n");
    chmod((dir_ / "demo.cgi").c_str(), 0755);
  }
  wsi_test::writeFile(conf, configuration(recipe.conf, values));
  server_log_ = dir_ / recipe.error_log;
  std::vector<std::string> argv = {recipe.program};
  std::istringstream args(recipe.args);
  for (std::string arg; args >> arg;)
    argv.push_back(replaced(replaced(arg, "@CONF@", conf), "@DIR@", dir_path_));
  server_.reset(new ServerProcess(argv, dir_path_, dir_ / "server.out"));
  if (!waitForTcp(port_, kStartLimit, server_.get()))
    throw std::runtime_error(nameOf(setup) + " does not listen on port " + std::to_string(port_) +
                             "\n" + logs());
}

std::string WebServer::logs() const {
  std::string text = "--- server output:\n" + wsi_test::readFile(dir_ / "server.out") +
                     "--- server error log:\n" + wsi_test::readFile(server_log_);
  return text + hostErrors();
}

std::string WebServer::hostErrors() const {
  std::string text;
  for (std::size_t i = 0; i < hosts_.size(); ++i)
    text += "--- host " + std::to_string(i) + ":\n" + hosts_[i]->log();
  return text;
}

Response fetch(int port, const std::string& path, const std::vector<std::string>& args,
               const std::string& dir) {
  std::vector<std::string> argv = {"curl", "-sS", "--max-time", "30"};
  // -I (HEAD) writes the header block to the output itself.
  if (std::find(args.begin(), args.end(), "-I") == args.end()) argv.insert(argv.end(), {"-D", "-"});
  argv.insert(argv.end(), args.begin(), args.end());
  argv.push_back("http://127.0.0.1:" + std::to_string(port) + path);
  RunResult run = runProgram(argv, dir);
  Response response{run.exit_code, 0, std::string(), std::string(), run.err};
  // Interim responses ("100 Continue") come first: keep the last header block.
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = run.out.find("\r\n\r\n", start);
    if (run.out.compare(start, 5, "HTTP/") != 0 || end == std::string::npos) break;
    response.headers = run.out.substr(start, end + 2 - start);
    start = end + 4;
  }
  response.body = run.out.substr(start);
  if (response.headers.size() > 9) response.status = std::atoi(response.headers.c_str() + 9);
  return response;
}

}  // namespace wsi_it
