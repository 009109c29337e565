// The connector handle over socket pairs: record blocks as bytes in their frames, the life of a
// connection, failures and the log messages.
#include <chrono>
#include <iterator>
#include <locale>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <qco/qco.hpp>
#include <wsi/qco_handle.hpp>
#include <wx/log.hpp>
#include "data_table.hpp"
#include "golden_calls.hpp"
#include "ios_test_util.hpp"
#include "qco_test_util.hpp"

using qco::QorvaConnector;
using wsi::QcoHandle;
using namespace qcotest;

namespace {

// A logger of its own with a file of its own, so that every message can be checked.
class QcoHandleTest : public ::testing::Test {
 protected:
  // The messages logged, one a line: "level line function: text" (the regex skips the long text).
  std::string logged() const {
    std::istringstream in(log_.text());
    const std::regex head("^\\S+ (\\S+) WSI\\[\\d+:\\d+\\] wsi/common/wsiqco:");
    std::string out, line;
    for (std::smatch m; std::getline(in, line); out += "\n")
      out += std::regex_search(line, m, head) ? m[1].str() + " " + m.suffix().str() : "? " + line;
    return out;
  }
  wsi_test::ScratchLog log_{7};
};

TEST_F(QcoHandleTest, ReadsTheRecordBlock) {
  for (const wsi_test::Row& row : wsi_test::readTable("qco_request_blocks.tsv")) {
    SCOPED_TRACE(row[0] + " (line " + std::to_string(row.line) + ")");
    SocketPair sp;
    QorvaConnector conn(sp.host);
    ASSERT_TRUE(sendAll(sp.peer, message(wire(row[1]))));
    QcoHandle h(conn);
    const wsi::Request& r = h.Request();
    EXPECT_STREQ(wsi::Http::MethodNameOf<wx::encoding::connector>(r.Method()), row[2].c_str());
    EXPECT_EQ(wsi_test::entries(r.QueryArgs_begin(), r.QueryArgs_end()), row[3]);
    EXPECT_EQ(wsi_test::entries(r.HttpHeaders_begin(), r.HttpHeaders_end()), row[4]);
    EXPECT_EQ(wsi_test::entries(r.ServerVariables_begin(), r.ServerVariables_end()), row[5]);
  }
}

// Three responses on one connection as the web server gets them: a full one, one with an empty
// content type and encoding that refuses writing once closed, and one that only the destructor
// ends, its Content-Length grouped as the global locale says (existing hosts rely on it).
TEST_F(QcoHandleTest, ResponseHeaderBlocksAreByteExact) {
  struct Grouping : std::numpunct<char> {
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
  };
  SocketPair sp;
  QorvaConnector conn(sp.host);
  ASSERT_TRUE(sendAll(sp.peer, message("\x80") + message("\x80") + message("\x80")));
  // The longest value with a 2-byte length, the shortest with a 4-byte one.
  const std::string short_form(0x7FFF, 's'), long_form(0x8000, 'l');
  {
    QcoHandle h(conn);
    wsi_test::runCalls(h, "status 404\nheader Content-Type: text/html; charset=utf-8\nlength 6");
    wsi_test::runCalls(h, "header X-Short: " + short_form + "\nheader X-Long: " + long_form);
    wsi_test::runCalls(h, "body hello\nend");
  }
  {
    QcoHandle h(conn);
    wsi_test::runCalls(h, "type \nencoding \nlength 1234567\nclose\nend false\nbody too late");
  }
  const std::locale old = std::locale::global(std::locale(std::locale::classic(), new Grouping));
  QcoHandle(conn).Response().setContentLength(1234567);
  std::locale::global(old);
  // Frames of at most the connector's buffer size; the header block goes out once it is whole, a
  // flush with nothing pending sends nothing (an empty frame would end the message early).
  const std::string first = message(
      status(404) + contentType("text/html; charset=utf-8") + header("Content-Length", "6") +
          header("X-Short", short_form) + header("X-Long", long_form) + "\x80",
      qco::QorvaStreamBuf::buffer_size);
  EXPECT_TRUE(receiveBytes(sp.peer, std::string::npos, 200) ==
              first.substr(0, first.size() - 4) + message("hello\n") +
                  message(status(-1) + contentType("application/octet-stream") +
                          header("Content-Length", "1234567") + "\x80") +
                  message(status(-1) + contentType("application/octet-stream; charset=utf-8") +
                          header("Content-Length", "1,234,567") + "\x80"));
}

// The host loop, a handle per request: one in 1-byte frames read to the end, one left unread, one
// after a pause longer than the timeout (which applies only inside a message), then the end.
TEST_F(QcoHandleTest, ServesSeveralRequestsOnOneConnection) {
  SocketPair sp;
  QorvaConnector conn(sp.host);
  conn.setTimeout(100);
  std::thread peer([&] {
    sendAll(sp.peer, message(wire("var:URL=/app end") + "posted=data", 1) +
                         message(wire("var:URL=/2 end") + std::string(100000, 'p'), 999));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    sendAll(sp.peer, message(wire("var:URL=/3 end"), 2));
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
      EXPECT_TRUE(h.Request().endRead());
      EXPECT_EQ(in->rdstate(), std::ios::eofbit);
      EXPECT_FALSE(h.Request().endRead());
      EXPECT_EQ(h.Request().beginRead(), nullptr);
    } else if (urls.size() == 2) {
      EXPECT_FALSE(h.Request().endRead());  // ended before the end of the posted data
    }
  }
  peer.join();
  EXPECT_EQ(urls, (std::vector<std::string>{"/app", "/2", "/3"}));
  EXPECT_EQ(conn.lastError(), QorvaConnector::connection_ended);
}

// The peer closes, stays silent or sends a malformed frame before the request is whole: the request
// fails (a silent peer's only after the timeout), logged with the code; nothing is written back.
TEST_F(QcoHandleTest, RequestCutShortFailsWithTheConnectorsCode) {
  for (const wsi_test::Row& row : wsi_test::readTable("qco_request_endings.tsv")) {
    SCOPED_TRACE(row[0] + " (line " + std::to_string(row.line) + ")");
    log_.use(std::stoi(row[1]));
    SocketPair sp;
    QorvaConnector conn(sp.host);
    conn.setTimeout(100);
    ASSERT_TRUE(sendAll(sp.peer, row[3] == "raw"
                                     ? wire(row[2])
                                     : message(wire(row[2])).substr(0, std::stoul(row[3]))));
    if (row[4] == "close") sp.closePeer();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(QcoHandle(conn).Request().beginRead(), nullptr);
    EXPECT_TRUE(row[4] == "close" ||
                std::chrono::steady_clock::now() - start >= std::chrono::milliseconds(100));
    EXPECT_EQ(conn.lastError(), std::stoi(row[5]));
    EXPECT_EQ(logged(), row[6].empty() ? "" : row[6] + "\n");
    EXPECT_TRUE(row[4] == "close" || receiveBytes(sp.peer, 1, 0).empty());
    EXPECT_EQ(conn.PrepareToReceive(), std::stoi(row[5]));  // a failed connection stays failed
  }
}

// Dumps as existing log readers expect them: a request dump leaves boolalpha set, a handle dump
// clears it. The peer leaves: the response fails without SIGPIPE, logged with headers sent.
TEST_F(QcoHandleTest, DumpsAndLogLinesOfAnExchangeWhosePeerLeaves) {
  SocketPair sp;
  QorvaConnector conn(sp.host);
  ASSERT_TRUE(
      sendAll(sp.peer, message(wire("var:REQUEST_METHOD=GET var:URL=/a header:Accept=*/* end"))));
  QcoHandle h(conn);
  wsi_test::runCalls(h, "status 200\nlength 0");
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

}  // namespace
