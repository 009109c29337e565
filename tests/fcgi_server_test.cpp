// The FastCGI server over a Unix socket in a temporary folder, driven by the test's own FastCGI
// client: keep-alive reuse, idle connections waiting without a thread, aborts, clients that
// leave, stop(), time-outs, limits and addresses.
#include <sys/socket.h>
#include <sys/un.h>
#include <atomic>
#include <chrono>
#include <cstdlib>
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

// What the host saw of one exchange.
struct Served {
  std::string posted;
  bool read_ok = false;
  bool write_ok = false;
};

// Serves one request as a host does: reads all posted data, answers "got N" and `extra` bytes.
bool serveOne(wsi::FcgiServer& server, Served& served, std::size_t extra = 0) {
  wsi::Handle* handle = server.accept();
  if (handle == nullptr) return false;
  std::istream* in = handle->Request().beginRead();
  served.posted.assign(std::istreambuf_iterator<char>(*in), {});
  served.read_ok = handle->Request().endRead();
  wsi::Response& response = handle->Response();
  response.setHttpStatus(wsi::Http::Ok);
  response.setContentType("text/plain");
  std::ostream* out = response.beginWrite();
  *out << "got " << served.posted.size();
  for (std::size_t i = 0; i < extra; i += 4096)
    *out << std::string(4096, 'x');
  served.write_ok = response.endWrite();
  server.release(handle);
  return true;
}

const std::string kHeaderBlock =
    "Status: 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n";

std::string get(int id) {
  return request(id, pair("REQUEST_METHOD", "GET"));
}
std::string post(int id, const std::string& body, const std::string& length) {
  return request(id, pair("REQUEST_METHOD", "POST") + pair("CONTENT_LENGTH", length), body);
}

class FcgiServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    options_.params_timeout_ms = options_.read_timeout_ms = options_.write_timeout_ms =
        options_.idle_timeout_ms = 300;
  }
  std::string address() const { return "unix:" + path(); }
  std::string path() const { return dir_ / "fcgi.sock"; }

  wsi_test::TempDir dir_;
  wsi_test::ScratchLog log_{7};
  wsi::FcgiOptions options_;
};

TEST_F(FcgiServerTest, ClosesAfterTheRequestUnlessAskedToKeep) {
  wsi::FcgiServer server(address(), options_);
  Client client(path());
  Served served;
  std::thread host([&] { serveOne(server, served); });
  client.send(request(1, pair("REQUEST_METHOD", "GET"), "", 0));
  EXPECT_EQ(client.read().end_status, 0);
  EXPECT_TRUE(client.closedWithin(2000));
  host.join();
}

TEST_F(FcgiServerTest, OneThreadServesTwoConnectionsTakingTurns) {
  wsi::FcgiServer server(address(), options_);
  Client a(path()), b(path());
  Served served[4];
  std::thread host([&] {
    for (Served& s : served)
      serveOne(server, s);
  });
  // b's request waits in the epoll set while a's is served, and the other way round.
  for (int id : {1, 2})
    for (Client* client : {&b, &a}) {
      client->send(get(id));
      EXPECT_EQ(client->read().end_status, 0);
    }
  host.join();
}

TEST_F(FcgiServerTest, ThreadsShareConnectionsUntilStopped) {
  wsi::FcgiServer server(address(), options_);
  std::vector<std::thread> hosts;
  std::atomic<int> served_count(0);
  for (int i = 0; i < 3; ++i)
    hosts.emplace_back([&] {
      Served served;
      while (serveOne(server, served))
        ++served_count;
    });
  std::vector<std::thread> clients;
  std::atomic<int> answered(0);
  for (int c = 0; c < 8; ++c)
    clients.emplace_back([&, c] {
      Client client(path());
      for (int r = 1; r <= 5; ++r) {
        const std::string body(static_cast<std::size_t>(c * 1000 + r), 'b');
        client.send(post(r, body, std::to_string(body.size())));
        if (client.read().stdout_text == kHeaderBlock + "got " + std::to_string(body.size()))
          ++answered;
      }
    });
  for (std::thread& t : clients)
    t.join();
  server.stop();
  for (std::thread& t : hosts)
    t.join();
  EXPECT_EQ(answered, 40);
  EXPECT_EQ(served_count, 40);
}

TEST_F(FcgiServerTest, PostedDataIsCheckedAgainstItsLength) {
  wsi::FcgiServer server(address(), options_);
  for (const wsi_test::Row& row : wsi_test::readTable("fcgi_posted.tsv")) {
    SCOPED_TRACE("fcgi_posted.tsv line " + std::to_string(row.line));
    Client client(path());
    Served served;
    std::thread host([&] { serveOne(server, served); });
    client.send(wire(row[0]));
    client.read();
    host.join();
    EXPECT_EQ(row[1], served.posted);
    EXPECT_EQ(row[2] == "yes", served.read_ok);
  }
  EXPECT_NE(log_.text().find("no posted data within 300 ms"), std::string::npos);
}

TEST_F(FcgiServerTest, UnreadPostedDataIsDroppedUpToTheLimit) {
  options_.max_drain_bytes = 16;
  wsi::FcgiServer server(address(), options_);
  std::thread host([&] {
    for (int i = 0; i < 2; ++i) {
      wsi::Handle* handle = server.accept();
      *handle->Response().beginWrite() << "unread";
      server.release(handle);
    }
  });
  Client client(path());
  client.send(post(1, std::string(16, 'a'), "16"));
  EXPECT_EQ(client.read().end_status, 0);
  client.send(post(2, std::string(17, 'a'), "17"));  // complete, but the connection closes
  EXPECT_EQ(client.read().end_status, 0);
  EXPECT_TRUE(client.closedWithin(2000));
  host.join();
}

TEST_F(FcgiServerTest, AnswersManagementRecordsAndClosesOnBrokenProtocol) {
  wsi::FcgiServer server(address(), options_);
  std::thread host([&] { EXPECT_EQ(server.accept(), nullptr); });
  Client client(path());
  client.send(record(9, 0, pair("FCGI_MPXS_CONNS", "")) + record(1, 1, "short"));
  std::string answer(32, '\0');
  ASSERT_EQ(recv(client.fd(), &answer[0], answer.size(), MSG_WAITALL), 32);
  EXPECT_EQ(answer, record(10, 0, pair("FCGI_MPXS_CONNS", "0"), 6));
  EXPECT_TRUE(client.closedWithin(2000));
  server.stop();
  host.join();
  EXPECT_NE(
      log_.text().find("the web server broke the protocol: a begin-request record of 5 bytes"),
      std::string::npos);
}

TEST_F(FcgiServerTest, AnAbortedRequestEndsWithoutItsEndRecord) {
  wsi::FcgiServer server(address(), options_);
  const std::string started =
      begin(1) + params(1, pair("CONTENT_LENGTH", "4")) + params(1, "") + stdinRecord(1, "ab");
  Served served;
  std::thread host([&] { serveOne(server, served); });
  // Aborted before it reached the host: the host never sees it.
  Client early(path());
  early.send(started + record(2, 1, ""));
  EXPECT_TRUE(early.read().closed);
  // Aborted while the host waits for the rest of the posted data.
  Client late(path());
  late.send(started);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  late.send(record(2, 1, ""));
  EXPECT_TRUE(late.read().closed);
  host.join();
  EXPECT_EQ(served.posted, "ab");
  EXPECT_FALSE(served.read_ok);
  EXPECT_FALSE(served.write_ok);
  EXPECT_NE(log_.text().find("FastCGI request 1 was aborted by the web server"), std::string::npos);
}

// A response the web server does not take fails its write, without a signal: the web server
// left mid-response, or it stopped reading.
TEST_F(FcgiServerTest, AResponseNobodyTakesFailsTheWrite) {
  wsi::FcgiServer server(address(), options_);
  Served served;
  {
    Client client(path());
    client.send(get(1));
  }
  serveOne(server, served, 8 << 20);
  EXPECT_TRUE(served.read_ok);
  EXPECT_FALSE(served.write_ok);
  EXPECT_NE(log_.text().find("sending failed"), std::string::npos);
  Client slow(path());
  slow.send(get(1));
  serveOne(server, served, 8 << 20);
  EXPECT_FALSE(served.write_ok);
  EXPECT_NE(log_.text().find("the web server took no response bytes within 300 ms"),
            std::string::npos);
}

TEST_F(FcgiServerTest, IncompleteParametersAndIdleConnectionsAreClosedInTime) {
  wsi::FcgiServer server(address(), options_);
  Client idle(path()), slow(path());
  slow.send(begin(1) + params(1, pair("A", "1")));
  std::atomic<bool> done(false);
  std::thread host([&] {
    Served served;
    while (!done)
      serveOne(server, served);
  });
  EXPECT_TRUE(idle.closedWithin(3000));
  EXPECT_TRUE(slow.closedWithin(3000));
  done = true;
  server.stop();
  host.join();
  EXPECT_NE(log_.text().find("the parameters did not arrive in time"), std::string::npos);
  EXPECT_NE(log_.text().find("Idle FastCGI connection closed."), std::string::npos);
}

TEST_F(FcgiServerTest, StopFinishesTheRequestInFlightThenReturnsNull) {
  wsi::FcgiServer server(address(), options_);
  Client busy(path()), idle(path());
  busy.send(begin(1) + params(1, pair("CONTENT_LENGTH", "3")) + params(1, ""));
  wsi::Handle* handle = server.accept();
  ASSERT_NE(handle, nullptr);
  std::thread waiter([&] { EXPECT_EQ(server.accept(), nullptr); });
  server.stop();
  waiter.join();
  EXPECT_TRUE(idle.closedWithin(2000));
  // The request in flight still reads its posted data and answers.
  busy.send(stdinRecord(1, "abc") + stdinRecord(1, ""));
  std::istream* in = handle->Request().beginRead();
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(*in), {}), "abc");
  *handle->Response().beginWrite() << "done";
  EXPECT_TRUE(handle->Response().endWrite());
  server.release(handle);
  const Reply reply = busy.read();
  EXPECT_EQ(reply.end_status, 0);
  EXPECT_TRUE(busy.closedWithin(2000));
  EXPECT_EQ(server.accept(), nullptr);
  EXPECT_THROW(Client{path()}, std::runtime_error);
}

TEST_F(FcgiServerTest, ConnectionsBeyondTheLimitWaitForRoom) {
  options_.max_connections = 1;
  wsi::FcgiServer server(address(), options_);
  Client first(path());
  std::thread host([&] {
    Served served;
    serveOne(server, served);
    serveOne(server, served);
  });
  first.send(request(1, "", "", 0));
  EXPECT_EQ(first.read().end_status, 0);
  Client second(path());  // queued in the backlog until the first one closed
  second.send(get(1));
  EXPECT_EQ(second.read().end_status, 0);
  host.join();
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
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(sa_family_t)), 0);  // autobind
  EXPECT_THROW(wsi::FcgiServer{"fd:" + std::to_string(fd)},
               std::invalid_argument);  // not listening
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
