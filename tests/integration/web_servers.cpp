#include "web_servers.hpp"

#include <sys/stat.h>
#include <sstream>
#include <stdexcept>

#include "data_table.hpp"

namespace wsi_it {
namespace {

// The row of tests/data/web_server_setups.tsv named `setup`.
wsi_test::Row recipeOf(const std::string& setup) {
  for (const wsi_test::Row& row : wsi_test::readTable("web_server_setups.tsv"))
    if (row[0] == setup) return row;
  throw std::runtime_error("no web server set-up named " + setup);
}

}  // namespace

std::string replaced(std::string text, const std::string& key, const std::string& value) {
  for (std::size_t at = text.find(key); at != std::string::npos;
       at = text.find(key, at + value.size()))
    text.replace(at, key.size(), value);
  return text;
}

WebServer::WebServer(const std::string& setup, int hosts) : port_(freeLoopbackPort()) {
  const wsi_test::Row recipe = recipeOf(setup);
  std::string root = dir_ / "", servers;
  root.pop_back();  // no trailing '/'
  std::filesystem::create_directories(dir_ / "tmp");
  for (int i = 0; recipe[3] == "yes" && i < hosts; ++i) {
    servers += "server unix:" + hostSocket(i) + ";\n    ";
    hosts_.emplace_back(
        new ServerProcess({WSI_DEMO, "--fastcgi", "unix:" + hostSocket(i), "--threads", "2"}, root,
                          dir_ / ("host" + std::to_string(i) + ".log")));
    if (!waitForUnixSocket(hostSocket(i), *hosts_.back()))
      throw std::runtime_error("the host does not listen on " + hostSocket(i) + "\n" + logs());
  }
  // The script lighttpd's mod_cgi runs.
  wsi_test::writeFile(dir_ / "demo.cgi", "#!/bin/sh\nexec '" WSI_DEMO "' --cgi\n");
  chmod((dir_ / "demo.cgi").c_str(), 0755);
  std::string conf = wsi_test::readFile(std::string(WSI_IT_CONF) + "/" + recipe[1]);
  const std::vector<std::pair<std::string, std::string>> values = {
      {"@DIR@", root},      {"@PORT@", std::to_string(port_)}, {"@DEMO@", WSI_DEMO},
      {"@HOSTS@", servers}, {"@SOCKET@", hostSocket(0)},       {"@CONF@", dir_ / "server.conf"}};
  std::string command = recipe[2];
  for (const auto& kv : values) {
    conf = replaced(conf, kv.first, kv.second);
    command = replaced(command, kv.first, kv.second);
  }
  wsi_test::writeFile(dir_ / "server.conf", conf);
  std::vector<std::string> argv;
  std::istringstream args(command);
  for (std::string arg; args >> arg;)
    argv.push_back(arg);
  server_.reset(new ServerProcess(argv, root, dir_ / "server.log"));
  if (!waitForTcp(port_, *server_))
    throw std::runtime_error(setup + " does not listen on port " + std::to_string(port_) + "\n" +
                             logs());
}

std::string WebServer::logs() const {
  std::string text;
  for (const auto& entry : std::filesystem::directory_iterator(dir_ / ""))
    if (entry.path().extension() == ".log")
      text += "--- " + entry.path().filename().string() + ":\n" + wsi_test::readFile(entry.path());
  return text;
}

}  // namespace wsi_it
