// The connector handle over real socket pairs: the request's record block, the response's
// header block as bytes, the life of a connection and the log messages.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <qco/qco.hpp>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>
#include <wsi/qco_handle.hpp>
#include <wx/log.hpp>

#include "tests/qco_test_util.hpp"

using qco::QorvaConnector;
using wsi::QcoHandle;
using namespace qcotest;

namespace {

typedef std::vector<std::pair<std::string, std::string>> Pairs;

// Installs a logger of the given level writing to a file of its own, so that every message the
// handles write can be checked; removes it afterwards.
class QcoHandleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/qco_handle_test.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    setLogLevel(7);
  }
  void TearDown() override {
    wsi::Handle::closeLog();
    for (const std::string& path : paths_)
      unlink(path.c_str());
    rmdir(dir_.c_str());
  }
  // A new logger of `level` with a new, empty log file.
  void setLogLevel(int level) {
    wsi::Handle::closeLog();
    paths_.push_back(dir_ + "/qv_wsi." + std::to_string(paths_.size()) + ".log");
    wx::log::log* log = new wx::log::log("WSI");
    log->file_name = paths_.back();
    log->enabled = true;
    log->level = level;
    wsi::Handle::plog_ = log;
  }
  // Every message logged so far, as (level word, "line function: text").
  Pairs logged() const {
    Pairs out;
    std::ifstream in(paths_.back());
    const std::regex shape("^\\S+ (\\S+) WSI\\[\\d+:\\d+\\] wsi/common/wsiqco:(.*)$");
    std::string line;
    std::smatch m;
    while (std::getline(in, line)) {
      if (std::regex_match(line, m, shape))
        out.emplace_back(m[1], m[2]);
      else
        out.emplace_back("?", line);
    }
    return out;
  }
  std::string dir_;
  std::vector<std::string> paths_;
};

std::string dumpOf(const wsi::Handle& h) {
  std::ostringstream os;
  h._dump(os);
  return os.str();
}

std::string pairsOf(wsi::OrderedNameTable::const_iterator b,
                    wsi::OrderedNameTable::const_iterator e) {
  std::string out;
  for (; b != e; ++b)
    out += b->first + "=" + b->second + ";";
  return out;
}

std::string variablesOf(const wsi::Request& r) {
  std::string out;
  for (auto it = r.ServerVariables_begin(); it != r.ServerVariables_end(); ++it)
    out += it->first + "=" + it->second + ";";
  return out;
}

// The records of a typical request: method, URL texts, a header, a content type.
std::string typicalRecords() {
  return variable("REQUEST_METHOD", "POST") + variable("HTTP_URL", "/app/run?x=1&y=%41") +
         variable("URL", "/app/run") + variable("QUERY_STRING", "x=1&y=%41") +
         header("Accept", "text/html") + contentType("text/plain");
}

std::string typicalBlock() {
  return typicalRecords() + "\x80";
}

struct BlockCase {
  const char* name;
  std::string block;
  wsi::Http::MethodId method;
  std::string query_args;
  std::string headers;
  std::string variables;
};

TEST_F(QcoHandleTest, ReadsTheRecordBlock) {
  std::string every_skipped_type;
  for (int t = 0; t < 256; ++t) {
    if (t == 0 || (t >= 5 && t <= 127) || (t >= 129 && t <= 254))
      every_skipped_type += static_cast<char>(t);
  }
  const BlockCase cases[] = {
      {"end record alone", "\x80", wsi::Http::InvalidMethod, "", "",
       "HTTP_URL=;QUERY_STRING=;REQUEST_METHOD=;URL=;"},
      {"0xFF also ends", variable("A", "1") + "\xFF" + variable("B", "2"), wsi::Http::InvalidMethod,
       "", "", "A=1;HTTP_URL=;QUERY_STRING=;REQUEST_METHOD=;URL=;"},
      {"typical", typicalBlock(), wsi::Http::Post, "x=1;y=A;",
       "Accept=text/html;Content-Type=text/plain;",
       "HEADER_Content-Type=text/plain;HTTP_CONTENT_TYPE=text/plain;HTTP_URL=/app/run?x=1&y=%41;"
       "QUERY_STRING=x=1&y=%41;REQUEST_METHOD=POST;URL=/app/run;"},
      {"every other type byte is skipped, the status record's two bytes too",
       every_skipped_type + header("A", "1") + "\x03\x80\x80" + every_skipped_type + "\x80",
       wsi::Http::InvalidMethod, "", "A=1;", "HTTP_URL=;QUERY_STRING=;REQUEST_METHOD=;URL=;"},
      {"a later spelling replaces the value in place",
       header("Accept", "a") + header("X", "x") + header("ACCEPT", "b") + "\x80",
       wsi::Http::InvalidMethod, "", "Accept=b;X=x;",
       "HTTP_URL=;QUERY_STRING=;REQUEST_METHOD=;URL=;"},
      {"long length 0x8001 0x0002 is 3",
       std::string("\x02\x80\x01\x00\x02", 5) + "abc" + str("v") + "\x80", wsi::Http::InvalidMethod,
       "", "", "abc=v;HTTP_URL=;QUERY_STRING=;REQUEST_METHOD=;URL=;"},
      {"empty strings", std::string("\x01\x00\x00\x00\x00\x80", 6), wsi::Http::InvalidMethod, "",
       "=;", "HTTP_URL=;QUERY_STRING=;REQUEST_METHOD=;URL=;"},
      {"method in lower case", variable("REQUEST_METHOD", "get") + "\x80", wsi::Http::Get, "", "",
       "HTTP_URL=;QUERY_STRING=;REQUEST_METHOD=get;URL=;"},
  };
  for (const BlockCase& k : cases) {
    SocketPair sp;
    QorvaConnector conn(sp.host);
    ASSERT_TRUE(sendAll(sp.peer, message(k.block)));
    QcoHandle h(conn);
    const wsi::Request& r = h.Request();
    EXPECT_EQ(r.Method(), k.method) << k.name;
    EXPECT_EQ(pairsOf(r.QueryArgs_begin(), r.QueryArgs_end()), k.query_args) << k.name;
    EXPECT_EQ(pairsOf(r.HttpHeaders_begin(), r.HttpHeaders_end()), k.headers) << k.name;
    EXPECT_EQ(variablesOf(r), k.variables) << k.name;
    EXPECT_NE(h.Request().beginRead(), nullptr) << k.name;
  }
}

TEST_F(QcoHandleTest, LongLengthKeepsOnlyTheLowHalves) {
  // 0x8001 0x2345 announces 0x2345 bytes, not 0x12345.
  const std::string name(0x2345, 'n');
  SocketPair sp;
  QorvaConnector conn(sp.host);
  std::thread peer([&] {
    sendAll(sp.peer, message(std::string("\x01\x80\x01\x23\x45", 5) + name + str("v") + "\x80"));
  });
  QcoHandle h(conn);
  peer.join();
  EXPECT_TRUE(h.Request().HttpHeaders(name) != nullptr);
  EXPECT_EQ(*h.Request().HttpHeaders(std::string(0x2345, 'N')), "v");
}

TEST_F(QcoHandleTest, RequestSplitIntoOneByteFramesWithPostedData) {
  SocketPair sp;
  QorvaConnector conn(sp.host);
  std::thread peer([&] { sendAll(sp.peer, message(typicalBlock() + "posted=data", 1)); });
  QcoHandle h(conn);
  std::istream* in = h.Request().beginRead();
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(h.Request().beginRead(), in);
  std::string body((std::istreambuf_iterator<char>(*in)), std::istreambuf_iterator<char>());
  in->peek();  // the end of the message as end of file on the stream itself
  peer.join();
  EXPECT_EQ(body, "posted=data");
  EXPECT_TRUE(h.Request().endRead());
  EXPECT_EQ(in->rdstate(), std::ios::eofbit);
  EXPECT_FALSE(h.Request().endRead());
  EXPECT_EQ(h.Request().beginRead(), nullptr);
  EXPECT_EQ(*h.Request().HttpHeaders("content-type"), "text/plain");
}

TEST_F(QcoHandleTest, EndReadBeforeTheEndFails) {
  SocketPair sp;
  QorvaConnector conn(sp.host);
  ASSERT_TRUE(sendAll(sp.peer, message(typicalBlock() + "unread")));
  QcoHandle h(conn);
  EXPECT_FALSE(h.Request().endRead());
  EXPECT_TRUE(h.Request().beginRead() == nullptr);
}

// The header block of a response, as the web server receives it.
TEST_F(QcoHandleTest, ResponseHeaderBlockIsByteExact) {
  SocketPair sp;
  QorvaConnector conn(sp.host);
  ASSERT_TRUE(sendAll(sp.peer, message("\x80")));
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
    EXPECT_FALSE(out.endWrite());
  }
  const std::string expected = std::string("\x03\x01\x94", 3) + std::string("\x04\x00\x18", 3) +
                               "text/html; charset=utf-8" + std::string("\x01\x00\x0E", 3) +
                               "Content-Length" + std::string("\x00\x01", 2) + "5" +
                               std::string("\x01\x00\x05", 3) + "X-Big" +
                               std::string("\x80\x00\x9C\x40", 4) + big + "\x80" + "hello";
  bool ended = false;
  EXPECT_TRUE(receiveMessage(sp.peer, &ended) == expected);
  EXPECT_TRUE(ended);
}

TEST_F(QcoHandleTest, DefaultResponseAndEmptyEncoding) {
  SocketPair sp;
  QorvaConnector conn(sp.host);
  ASSERT_TRUE(sendAll(sp.peer, message("\x80") + message("\x80")));
  { QcoHandle h(conn); }  // never ended: the destructor ends it
  {
    QcoHandle h(conn);
    h.Response().setContentType("");
    h.Response().setContentEncoding("");
    h.Response().close();
    EXPECT_FALSE(h.Response().endWrite());
    EXPECT_EQ(h.Response().beginWrite(), nullptr);
  }
  EXPECT_EQ(receiveMessage(sp.peer), std::string("\x03\xFF\xFF\x04\x00\x27", 6) +
                                         "application/octet-stream; charset=utf-8\x80");
  EXPECT_EQ(receiveMessage(sp.peer),
            std::string("\x03\xFF\xFF\x04\x00\x18", 6) + "application/octet-stream\x80");
  // Each response was ended exactly once: nothing follows.
  EXPECT_EQ(receiveBytes(sp.peer, 1, 100), "");
}

// The host loop: one handle per request until the peer ends the connection.
TEST_F(QcoHandleTest, ServesSeveralRequestsOnOneConnection) {
  SocketPair sp;
  QorvaConnector conn(sp.host);
  const std::string posted(100000, 'p');
  ASSERT_TRUE(sendAll(sp.peer, message(variable("URL", "/1") + "\x80" + "small") +
                                   message(variable("URL", "/2") + "\x80" + posted, 999) +
                                   message(variable("URL", "/3") + "\x80", 2)));
  std::thread closer([&] {
    for (int i = 0; i < 3; ++i)
      receiveMessage(sp.peer);
    shutdown(sp.peer, SHUT_WR);
  });
  std::vector<std::string> urls;
  for (;;) {
    QcoHandle h(conn);
    if (h.Request().beginRead() == nullptr) break;
    urls.push_back(h.Request().URL());
    if (urls.size() == 1) {  // the first request's posted data is read, the others are not
      std::string s;
      *h.Request().beginRead() >> s;
      EXPECT_EQ(s, "small");
    }
    *h.Response().beginWrite() << h.Request().URL();
  }
  closer.join();
  EXPECT_EQ(urls, (std::vector<std::string>{"/1", "/2", "/3"}));
  EXPECT_EQ(conn.lastError(), QorvaConnector::connection_ended);
  ASSERT_FALSE(logged().empty());
  EXPECT_EQ(logged().back(),
            Pairs::value_type("debug", "221 wsi::QcoRequest::init: Connection terminated."));
}

struct EndingCase {
  const char* name;
  int level;
  std::string sent;  // what the peer sends before it closes
  Pairs expected;
};

TEST_F(QcoHandleTest, PeerClosingIsTracedOrLoggedAsAFailure) {
  const std::string inside =
      "223 wsi::QcoRequest::init: Initialization failed with error code 3 "
      "(Connection closed inside a message)!";
  const EndingCase cases[] = {
      {"between messages at level 7",
       7,
       "",
       {{"debug", "221 wsi::QcoRequest::init: Connection terminated."}}},
      {"between messages at level 3", 3, "", {}},
      {"between messages at level -1",
       -1,
       "",
       {{"debug", "221 wsi::QcoRequest::init: Connection terminated."}}},
      {"inside a message at level 3", 3, frame(typicalBlock().substr(0, 9)), {{"err", inside}}},
      {"inside a message at level 2", 2, frame(typicalBlock().substr(0, 9)), {}},
      {"inside a frame header at level 7", 7, std::string(1, '\0'), {{"err", inside}}},
      {"huge frame",
       3,
       u32(0xFFFFFFF0),
       {{"err",
         "223 wsi::QcoRequest::init: Initialization failed with error code 5 (Malformed "
         "frame: length above the limit)!"}}},
  };
  for (const EndingCase& k : cases) {
    setLogLevel(k.level);
    {
      SocketPair sp;
      QorvaConnector conn(sp.host);
      ASSERT_TRUE(sendAll(sp.peer, k.sent));
      sp.closePeer();
      QcoHandle h(conn);
      EXPECT_EQ(h.Request().beginRead(), nullptr) << k.name;
      EXPECT_FALSE(h.Request().endRead()) << k.name;
      EXPECT_EQ(h.Response().beginWrite(), nullptr) << k.name;
      EXPECT_FALSE(h.Response().endWrite()) << k.name;
    }
    EXPECT_EQ(logged(), k.expected) << k.name;
  }
}

TEST_F(QcoHandleTest, EveryTruncatedBlockFailsAndWritesNothing) {
  setLogLevel(3);
  const std::string block = typicalRecords() + header("Cookie", std::string(0x9000, 'c')) + "\x80";
  for (std::size_t n = 0; n < block.size(); n += (n < 200 ? 1 : 997)) {
    for (bool then_close : {false, true}) {
      SocketPair sp;
      QorvaConnector conn(sp.host);
      // Cut short by the end frame, or by the peer closing (with nothing at all: between
      // messages).
      const int code = !then_close ? 0 : n == 0 ? 17 : 3;
      std::thread peer([&] {
        if (!then_close) sendAll(sp.peer, message(block.substr(0, n)));
        if (then_close && n > 0) sendAll(sp.peer, frame(block.substr(0, n)));
        if (then_close) shutdown(sp.peer, SHUT_WR);
      });
      {
        QcoHandle h(conn);
        EXPECT_EQ(h.Request().beginRead(), nullptr) << n;
        // Destroyed without a byte written and without turning the connection round.
      }
      peer.join();
      EXPECT_EQ(conn.lastError(), code) << n;
      shutdown(sp.host, SHUT_WR);
      EXPECT_EQ(receiveAll(sp.peer), "") << n;
    }
  }
  const Pairs lines = logged();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), Pairs::value_type("err",
                                             "223 wsi::QcoRequest::init: Initialization failed "
                                             "with error code 0 (No error)!"));
}

TEST_F(QcoHandleTest, SilentPeerFailsTheRequestAfterTheTimeout) {
  setLogLevel(3);
  SocketPair sp;
  QorvaConnector conn(sp.host);
  conn.setTimeout(100);
  // A string announced as 0xFFFF bytes with three behind it, then silence.
  ASSERT_TRUE(sendAll(sp.peer, frame(std::string("\x01\xFF\xFF", 3) + "abc")));
  QcoHandle h(conn);
  EXPECT_EQ(h.Request().beginRead(), nullptr);
  EXPECT_EQ(logged(), (Pairs{{"err",
                              "223 wsi::QcoRequest::init: Initialization failed with error "
                              "code 4 (Timed out waiting for the peer)!"}}));
}

TEST_F(QcoHandleTest, ArbitraryBytesFromThePeerNeverCrash) {
  setLogLevel(0);
  std::mt19937 rng(12345);
  for (int round = 0; round < 300; ++round) {
    std::string bytes(rng() % 300, '\0');
    for (char& c : bytes)
      c = static_cast<char>(rng());
    SocketPair sp;
    QorvaConnector conn(sp.host);
    conn.setTimeout(20);
    ASSERT_TRUE(sendAll(sp.peer, round % 2 ? bytes : message(bytes, 1 + rng() % 50)));
    shutdown(sp.peer, SHUT_WR);
    QcoHandle h(conn);
    if (h.Request().beginRead() == nullptr) continue;
    EXPECT_EQ(conn.lastError(), 0);
    h.Response().endWrite();
  }
}

TEST_F(QcoHandleTest, PeerGoneBeforeTheResponseFailsItWithoutASignal) {
  setLogLevel(3);
  SocketPair sp;
  QorvaConnector conn(sp.host);
  ASSERT_TRUE(sendAll(sp.peer, message(typicalBlock())));
  QcoHandle h(conn);
  ASSERT_NE(h.Request().beginRead(), nullptr);
  sp.closePeer();
  h.Response().setHttpStatus(wsi::Http::Ok);
  EXPECT_FALSE(h.Response().endWrite());
  EXPECT_EQ(conn.lastError(), QorvaConnector::peer_closed);
  EXPECT_EQ(logged(), (Pairs{{"err", "347 wsi::QcoResponse::_doSendHeaders: Response failed!"}}));
}

TEST_F(QcoHandleTest, DumpsAndTheirLogLines) {
  SocketPair sp;
  QorvaConnector conn(sp.host);
  ASSERT_TRUE(sendAll(sp.peer, message(variable("REQUEST_METHOD", "GET") + variable("URL", "/a") +
                                       header("Accept", "*/*") + "\x80")));
  QcoHandle h(conn);
  h.Response().setHttpStatus(wsi::Http::Ok);
  h.Response().setContentLength(0);
  const std::string request_dump =
      "InitFail=false\nMethod=GET\nHttpURL=\nURL=/a\nQueryString=\nQuery Argument(s):\n  None.\n"
      "HTTP Header(s):\n  [1] Accept=*/*\nServer Variable(s):\n  [1] HTTP_URL=\n"
      "  [2] QUERY_STRING=\n  [3] REQUEST_METHOD=GET\n  [4] URL=/a\n";
  const std::string response_dump =
      "InitFail=false\nHttpStatus=200 OK\nContentType=application/octet-stream\n"
      "ContentEncoding=utf-8\nContentLength=0\nHeadersSent=false\nHTTP Header(s):\n  None.\n";
  EXPECT_EQ(dumpOf(h), "[IN]\n" + request_dump + "[OUT]\n" + response_dump);

  std::ostringstream os;
  h.Request()._dump(os);
  os << true;
  EXPECT_EQ(os.str(), request_dump + "true");  // boolalpha stays set after a request dump
  std::ostringstream after_handle;
  h._dump(after_handle);
  after_handle << true;
  EXPECT_EQ(after_handle.str().back(), '1');  // ... and is cleared after a whole handle dump

  h.Response().endWrite();
  auto escaped = [](std::string s) { return std::regex_replace(s, std::regex("\n"), "\\n"); };
  // The response is dumped with its headers-sent flag already up.
  const std::string sent_dump =
      std::regex_replace(response_dump, std::regex("HeadersSent=false"), "HeadersSent=true");
  EXPECT_EQ(logged(),
            (Pairs{{"debug", "246 wsi::QcoRequest::init: " + escaped(request_dump)},
                   {"debug", "313 wsi::QcoResponse::_doSendHeaders: " + escaped(sent_dump)}}));
}

}  // namespace
