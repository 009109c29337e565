// The connector handle over real socket pairs: the request's record block and the response's
// header block as bytes in their frames, the life of a connection and the log messages; and the
// stand-in connector's own write timeout, pipes and the absence of SIGPIPE.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <iterator>
#include <qco/qco.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>
#include <wsi/qco_handle.hpp>
#include <wx/log.hpp>

#include "data_table.hpp"
#include "ios_test_util.hpp"
#include "qco_test_util.hpp"

using qco::QorvaConnector;
using wsi::QcoHandle;
using namespace qcotest;

namespace {

// Installs a logger of its own with a file of its own, so that every message can be checked.
class QcoHandleTest : public ::testing::Test {
 protected:
  void SetUp() override { setLogLevel(7); }
  void TearDown() override { wsi::Handle::closeLog(); }
  // A new logger of `level` with a new, empty log file.
  void setLogLevel(int level) {
    wsi::Handle::closeLog();
    log_ = dir_ / ("qv_wsi." + std::to_string(++logs_) + ".log");
    wsi::Handle::plog_ = new wx::log::log("WSI");
    wsi::Handle::plog_->file_name = log_;
    wsi::Handle::plog_->enabled = true;
    wsi::Handle::plog_->level = level;
  }
  // The messages logged so far, one a line: level word, then "line function: text". The pattern
  // stops before the text: std::regex recurses per character and would overflow on long dumps.
  std::string logged() const {
    std::istringstream in(wsi_test::readFile(log_));
    const std::regex head("^\\S+ (\\S+) WSI\\[\\d+:\\d+\\] wsi/common/wsiqco:");
    std::string out, line;
    for (std::smatch m; std::getline(in, line); out += "\n")
      out += std::regex_search(line, m, head) ? m[1].str() + " " + m.suffix().str() : "? " + line;
    return out;
  }
  wsi_test::TempDir dir_;
  std::string log_;
  int logs_ = 0;
};

const std::string kTypicalBlock = variable("REQUEST_METHOD", "POST") + variable("URL", "/app") +
                                  header("Accept", "text/html") + contentType("text/plain");

TEST_F(QcoHandleTest, ReadsTheRecordBlock) {
  for (const wsi_test::Row& row : wsi_test::readTable("qco_request_blocks.tsv")) {
    SCOPED_TRACE(row[0] + " (line " + std::to_string(row.line) + ")");
    SocketPair sp;
    QorvaConnector conn(sp.host);
    ASSERT_TRUE(sendAll(sp.peer, message(row[1])));
    QcoHandle h(conn);
    const wsi::Request& r = h.Request();
    EXPECT_STREQ(wsi::Http::MethodNameOf<wx::encoding::connector>(r.Method()), row[2].c_str());
    EXPECT_EQ(wsi_test::entries(r.QueryArgs_begin(), r.QueryArgs_end()), row[3]);
    EXPECT_EQ(wsi_test::entries(r.HttpHeaders_begin(), r.HttpHeaders_end()), row[4]);
    EXPECT_EQ(wsi_test::entries(r.ServerVariables_begin(), r.ServerVariables_end()), row[5]);
    EXPECT_NE(h.Request().beginRead(), nullptr);
  }
}

// Three responses on one connection as the web server receives them: a full one, one that only
// the destructor ends, one with an empty content type and encoding.
TEST_F(QcoHandleTest, ResponseHeaderBlocksAreByteExact) {
  SocketPair sp;
  QorvaConnector conn(sp.host);
  ASSERT_TRUE(sendAll(sp.peer, message("\x80") + message("\x80") + message("\x80")));
  const std::string big(40000, 'v');
  {
    QcoHandle h(conn);
    wsi::Response& out = h.Response();
    out.setHttpStatus(wsi::Http::NotFound);
    out.setHttpHeader("Content-Type", "text/html; charset=utf-8");
    out.setContentLength(5);
    out.setHttpHeader("X-Big", big);
    *out.beginWrite() << "hello";
    EXPECT_TRUE(out.endWrite());
  }
  { QcoHandle h(conn); }
  {
    QcoHandle h(conn);
    h.Response().setContentType("");
    h.Response().setContentEncoding("");
    h.Response().close();
    EXPECT_FALSE(h.Response().endWrite());
    EXPECT_EQ(h.Response().beginWrite(), nullptr);
  }
  // Frames of at most the connector's buffer size; the header block goes out once it is whole, a
  // flush with nothing pending sends nothing (an empty frame would end the message early).
  const std::string first =
      message(std::string("\x03\x01\x94\x04\x00\x18", 6) + "text/html; charset=utf-8" +
                  std::string("\x01\x00\x0E", 3) + "Content-Length" + std::string("\x00\x01", 2) +
                  "5" + std::string("\x01\x00\x05", 3) + "X-Big" +
                  std::string("\x80\x00\x9C\x40", 4) + big + "\x80",
              qco::QorvaStreamBuf::buffer_size);
  EXPECT_TRUE(
      receiveBytes(sp.peer, std::string::npos, 200) ==
      first.substr(0, first.size() - 4) + message("hello") +
          message(std::string("\x03\xFF\xFF\x04\x00\x27", 6) +
                  "application/octet-stream; charset=utf-8\x80") +
          message(std::string("\x03\xFF\xFF\x04\x00\x18", 6) + "application/octet-stream\x80"));
}

// The host loop: one handle per request until the peer ends the connection. The first request
// comes in one-byte frames with a string whose long length 0x8001 0x2345 announces 0x2345 bytes
// (not 0x12345), and its posted data is read to the end; the second's is left unread; the third
// comes after a pause longer than the timeout, which applies only inside a message.
TEST_F(QcoHandleTest, ServesSeveralRequestsOnOneConnection) {
  SocketPair sp;
  QorvaConnector conn(sp.host);
  conn.setTimeout(100);
  std::thread peer([&] {
    sendAll(sp.peer, message(kTypicalBlock + std::string("\x01\x80\x01\x23\x45", 5) +
                                 std::string(0x2345, 'n') + str("v") + "\x80" + "posted=data",
                             1) +
                         message(variable("URL", "/2") + "\x80" + std::string(100000, 'p'), 999));
    receiveMessage(sp.peer);
    receiveMessage(sp.peer);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    sendAll(sp.peer, message(variable("URL", "/3") + "\x80", 2));
    receiveMessage(sp.peer);
    shutdown(sp.peer, SHUT_WR);
  });
  std::vector<std::string> urls;
  for (;;) {
    QcoHandle h(conn);
    std::istream* in = h.Request().beginRead();
    if (in == nullptr) break;
    urls.push_back(h.Request().URL());
    if (urls.size() == 1) {
      EXPECT_EQ(h.Request().beginRead(), in);
      EXPECT_EQ(std::string(std::istreambuf_iterator<char>(*in), {}), "posted=data");
      in->peek();  // the end of the message as end of file on the stream itself
      EXPECT_EQ(*h.Request().HttpHeaders(std::string(0x2345, 'N')), "v");
      EXPECT_EQ(*h.Request().HttpHeaders("content-type"), "text/plain");
      EXPECT_TRUE(h.Request().endRead());
      EXPECT_EQ(in->rdstate(), std::ios::eofbit);
      EXPECT_FALSE(h.Request().endRead());
      EXPECT_EQ(h.Request().beginRead(), nullptr);
    } else if (urls.size() == 2) {
      EXPECT_FALSE(h.Request().endRead());  // ended before the end of the posted data
    }
    *h.Response().beginWrite() << h.Request().URL();
  }
  peer.join();
  EXPECT_EQ(urls, (std::vector<std::string>{"/app", "/2", "/3"}));
  EXPECT_EQ(conn.lastError(), QorvaConnector::connection_ended);
  const std::string log = logged();
  EXPECT_EQ(log.substr(log.rfind("debug 221")),
            "debug 221 wsi::QcoRequest::init: Connection terminated.\n");
}

// The peer closes, or stays silent past the timeout, before the request is whole.
TEST_F(QcoHandleTest, RequestCutShortFailsWithTheConnectorsCode) {
  for (const wsi_test::Row& row : wsi_test::readTable("qco_request_endings.tsv")) {
    SCOPED_TRACE(row[0] + " (line " + std::to_string(row.line) + ")");
    setLogLevel(std::stoi(row[1]));
    SocketPair sp;
    QorvaConnector conn(sp.host);
    conn.setTimeout(100);
    ASSERT_TRUE(sendAll(sp.peer, row[2]));
    if (row[3] == "close") sp.closePeer();
    const auto start = std::chrono::steady_clock::now();
    {
      QcoHandle h(conn);
      EXPECT_EQ(h.Request().beginRead(), nullptr);
      EXPECT_FALSE(h.Request().endRead());
      EXPECT_EQ(h.Response().beginWrite(), nullptr);
      EXPECT_FALSE(h.Response().endWrite());
    }
    // A silent peer fails the request only once the timeout has passed.
    EXPECT_TRUE(row[4] != "4" ||
                std::chrono::steady_clock::now() - start >= std::chrono::milliseconds(100));
    EXPECT_EQ(conn.lastError(), std::stoi(row[4]));
    EXPECT_EQ(conn.PrepareToReceive(), std::stoi(row[4]));  // a failed connection stays failed
    EXPECT_EQ(logged(), row[5].empty() ? "" : row[5] + "\n");
  }
}

// Prefixes near both ends of the block and every 997th between, cut short by the end frame or
// the peer closing: a failed request writes nothing, not even the end frame of a turn-round.
TEST_F(QcoHandleTest, EveryTruncatedBlockFailsAndWritesNothing) {
  const std::string block = kTypicalBlock + header("Cookie", std::string(0x9000, 'c')) + "\x80";
  for (std::size_t n = 0; n < block.size(); n += (n < 200 || n + 200 > block.size() ? 1 : 997)) {
    for (bool then_close : {false, true}) {
      SocketPair sp;
      QorvaConnector conn(sp.host);
      const std::string cut = message(block.substr(0, n));
      std::thread peer([&] {
        sendAll(sp.peer, then_close ? cut.substr(0, cut.size() - 4) : cut);
        if (then_close) shutdown(sp.peer, SHUT_WR);
      });
      EXPECT_EQ(QcoHandle(conn).Request().beginRead(), nullptr) << n;
      peer.join();
      EXPECT_EQ(conn.lastError(), !then_close ? 0 : n == 0 ? 17 : 3) << n;
      EXPECT_EQ(receiveBytes(sp.peer, 1, 0), "") << n;
    }
  }
  EXPECT_EQ(logged().substr(0, logged().find('\n')),
            "err 223 wsi::QcoRequest::init: Initialization failed with error code 0 (No error)!");
}

// The dumps' words after "InitFail=" are kept as existing log readers expect them: a request dump
// leaves boolalpha set, a whole handle dump clears it. The peer then leaves before the response,
// which fails without a SIGPIPE; it was logged with its headers-sent flag already up.
TEST_F(QcoHandleTest, DumpsAndLogLinesOfAnExchangeWhosePeerLeaves) {
  SocketPair sp;
  QorvaConnector conn(sp.host);
  ASSERT_TRUE(sendAll(sp.peer, message(variable("REQUEST_METHOD", "GET") + variable("URL", "/a") +
                                       header("Accept", "*/*") + "\x80")));
  QcoHandle h(conn);
  h.Response().setHttpStatus(wsi::Http::Ok);
  h.Response().setContentLength(0);
  std::ostringstream os;
  h._dump(os);
  os << true << "\n";
  h.Request()._dump(os);
  os << true << "\n";
  EXPECT_EQ(os.str(), wsi_test::readFile(WSI_TEST_DATA "/qco_dumps/dumps.txt"));
  sp.closePeer();
  EXPECT_FALSE(h.Response().endWrite());
  EXPECT_EQ(conn.lastError(), QorvaConnector::peer_closed);
  EXPECT_EQ(logged(), wsi_test::readFile(WSI_TEST_DATA "/qco_dumps/log.txt"));
}

TEST(QcoConnector, PeerThatStopsReadingFailsTheWriteAfterTheTimeout) {
  SocketPair sp;
  QorvaConnector c(sp.host);
  c.setTimeout(100);
  const std::string block(1 << 20, 'w');
  for (int i = 0; i < 64 && c.stream().good(); ++i)
    c.stream() << block;
  EXPECT_FALSE(c.stream().good());
  EXPECT_EQ(c.lastError(), QorvaConnector::timed_out);
}

// Over two pipes the connector writes with write(), not send(): a reader that has gone must fail
// the write without a SIGPIPE, whose default action would end the program. The connector never
// closes the descriptors it was given.
TEST(QcoConnector, WorksOverTwoPipes) {
  int in[2], out[2];
  ASSERT_EQ(pipe(in), 0);
  ASSERT_EQ(pipe(out), 0);
  {
    QorvaConnector c(in[0], out[1]);
    const std::string request = message("posted", 2);
    ASSERT_EQ(write(in[1], request.data(), request.size()), ssize_t(request.size()));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(c.stream()), {}), "posted");
    c.stream() << "answer";
    ASSERT_EQ(c.PrepareToReceive(), 0);
    EXPECT_EQ(receiveMessage(out[0]), "answer");
    close(out[0]);
    c.stream() << "lost";
    EXPECT_EQ(c.PrepareToReceive(), QorvaConnector::peer_closed);
  }
  EXPECT_NE(fcntl(in[0], F_GETFD), -1);
  EXPECT_NE(fcntl(out[1], F_GETFD), -1);
  for (int fd : {in[0], in[1], out[1]})
    close(fd);
}

}  // namespace
