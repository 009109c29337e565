// The FastCGI server on a Unix socket in a temporary folder, driven by the test's own client:
// exchanges from tables, threads sharing kept connections, idle connections, limits, addresses.
#include <sys/socket.h>
#include <sys/un.h>
#include <chrono>
#include <cstdlib>
#include <future>
#include <map>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/fcgi_server.hpp>
#include "data_table.hpp"
#include "fcgi_client.hpp"
#include "ios_test_util.hpp"

using namespace fcgitest;

namespace {

// Serves one request as a host does, `how` being "reads", "skips" or "floods" (see
// tests/data/fcgi_exchanges.tsv). Returns what the host saw; empty once the server stopped.
std::string serveOne(wsi::FcgiServer& server, const std::string& how = "reads") {
  wsi::Handle* handle = server.accept();
  if (handle == nullptr) return "";
  std::string posted, read = "-";
  if (how != "skips") {
    std::istream* in = handle->Request().beginRead();
    posted.assign(std::istreambuf_iterator<char>(*in), {});
    read = handle->Request().endRead() ? "ok" : "failed";
  }
  wsi::Response& response = handle->Response();
  response.setHttpStatus(wsi::Http::Ok);
  response.setContentType("text/plain");
  *response.beginWrite() << "got " << posted.size()
                         << std::string(how == "floods" ? 8 << 20 : 0, 'x');
  const bool wrote = response.endWrite();
  server.release(handle);
  return posted + ":" + read + ":" + (wrote ? "ok" : "failed");
}

class FcgiServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    options_.params_timeout_ms = options_.read_timeout_ms = options_.write_timeout_ms = 300;
    options_.idle_timeout_ms = 5000;  // longer than a client waits for an answer
    options_.max_drain_bytes = 16;
  }
  std::string path() const { return dir_ / "fcgi.sock"; }
  std::string run(const std::string& script, const std::string& how, std::size_t requests);

  wsi_test::TempDir dir_;
  wsi_test::ScratchLog log_{7};
  wsi::FcgiOptions options_;
  std::string saw_;  // what the host saw of each request, separated by blanks
};

// Runs `script` (see tests/data/fcgi_exchanges.tsv) against a new server whose host serves
// `requests` requests as `how` says, then waits in accept() until stopped. Returns what came back.
std::string FcgiServerTest::run(const std::string& script, const std::string& how,
                                std::size_t requests) {
  wsi::FcgiServer server("unix:" + path(), options_);
  std::promise<void> served;
  saw_.clear();
  std::thread host([&] {
    for (std::size_t i = 0; i < requests; ++i)
      saw_ += (i == 0 ? "" : " ") + serveOne(server, how);
    served.set_value();
    EXPECT_EQ(server.accept(), nullptr);
  });
  std::map<std::string, Client> clients;
  std::string at = "@a", back, pending;
  clients.try_emplace(at, path());
  for (const std::string& word : split(script + " @", ' ')) {  // the last "@" sends the rest
    if (word[0] != '@' && word != "pause" && word != "reply" && word != "close" && word != "stop") {
      pending += word + " ";
      continue;
    }
    EXPECT_TRUE(pending.empty() || qcotest::sendAll(clients.at(at).fd(), wire(pending)));
    pending.clear();
    if (word == "pause") {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    } else if (word == "reply") {
      back += clients.at(at).read();
    } else if (word == "close") {
      clients.erase(at);
    } else if (word == "stop") {
      server.stop();
      EXPECT_EQ(server.accept(), nullptr);  // while the host still serves
    } else if (word != "@" && clients.try_emplace(at = word, path()).first->second.fd() < 0) {
      back += "refused";
    }
  }
  served.get_future().wait_for(std::chrono::seconds(10));
  server.stop();
  host.join();
  return back;
}

TEST_F(FcgiServerTest, Exchanges) {
  for (const char* table : {"fcgi_exchanges.tsv", "fcgi_posted.tsv"})
    for (const wsi_test::Row& row : wsi_test::readTable(table)) {
      SCOPED_TRACE(std::string(table) + " line " + std::to_string(row.line));
      log_.use(7);
      EXPECT_EQ(wire(row[3]), run(row[0], row[1], split(row[2], ' ').size()));
      EXPECT_EQ(row[2], saw_);
      EXPECT_NE(log_.text().find(row.fields.size() > 4 ? row[4] : ""), std::string::npos);
    }
}

TEST_F(FcgiServerTest, IdleConnectionsAreClosedInTime) {
  options_.idle_timeout_ms = 300;
  EXPECT_EQ("EOF", run("reply", "reads", 0));
  EXPECT_NE(log_.text().find("Idle FastCGI connection closed."), std::string::npos);
}

TEST_F(FcgiServerTest, ConnectionsBeyondTheLimitWaitForRoom) {
  options_.max_connections = 1;
  EXPECT_EQ(wire("end:1:0:0"), run("@b request:1: pause @a close @b reply", "reads", 1));
}

TEST_F(FcgiServerTest, ThreadsShareKeptConnectionsUntilStopped) {
  wsi::FcgiServer server("unix:" + path(), options_);
  std::vector<std::thread> hosts, clients;
  for (int i = 0; i < 3; ++i)
    hosts.emplace_back([&] {
      while (!serveOne(server).empty()) {
      }
    });
  for (int c = 0; c < 8; ++c)
    clients.emplace_back([&, c] {
      Client client(path());
      std::string expected;
      for (int r = 1; r <= 5; ++r) {
        const std::string id = std::to_string(r), size = std::to_string(c * 1000 + r);
        ASSERT_TRUE(qcotest::sendAll(
            client.fd(), wire("request:" + id + ":CONTENT_LENGTH=" + size + ":{" + size + "*b}")));
        EXPECT_EQ(wire("end:" + id + ":0:0"), client.read());
        expected += "Status: 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\n\r\ngot " + size;
      }
      EXPECT_EQ(expected, client.out);
    });
  for (std::thread& t : clients)
    t.join();
  server.stop();
  for (std::thread& t : hosts)
    t.join();
}

// What making a server on `address` does: "listens" or the kind of exception it throws.
std::string outcomeOf(const std::string& address) {
  try {
    wsi::FcgiServer server(address);
    return "listens";
  } catch (const std::invalid_argument&) {
    return "invalid_argument";
  } catch (const std::system_error&) {
    return "system_error";
  }
}

TEST(FcgiAddress, Table) {
  unsetenv("LISTEN_PID");
  for (const wsi_test::Row& row : wsi_test::readTable("fcgi_addresses.tsv"))
    EXPECT_EQ(row[1], outcomeOf(row[0])) << "fcgi_addresses.tsv line " << row.line;
}

TEST(FcgiAddress, ListensOnInheritedSockets) {
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  // Bound to an automatic address, not listening yet.
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(sa_family_t)), 0);
  EXPECT_THROW(wsi::FcgiServer{"fd:" + std::to_string(fd)}, std::invalid_argument);
  ASSERT_EQ(listen(fd, 4), 0);
  // As systemd passes it: descriptor 3, named by LISTEN_FDS for the process LISTEN_PID.
  const int saved = dup(3);
  ASSERT_EQ(dup2(fd, 3), 3);
  setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
  setenv("LISTEN_FDS", "1", 1);
  EXPECT_NO_THROW(wsi::FcgiServer{"systemd"});  // closes descriptor 3
  setenv("LISTEN_PID", "1", 1);
  EXPECT_THROW(wsi::FcgiServer{"systemd"}, std::invalid_argument);  // meant for another process
  unsetenv("LISTEN_PID");
  if (saved >= 0) dup2(saved, 3), close(saved);
  EXPECT_NO_THROW(wsi::FcgiServer{"fd:" + std::to_string(fd)});  // closes it
}

}  // namespace
