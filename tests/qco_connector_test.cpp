// The stand-in connector over real socket pairs and pipes: framing, message boundaries, the
// error codes and the absence of SIGPIPE.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <qco/qco.hpp>
#include <string>
#include <thread>

#include "tests/qco_test_util.hpp"

using qco::QorvaConnector;
using namespace qcotest;

namespace {

// Reads the stream to its end; the stream is left at end of file.
std::string readToEnd(std::iostream& s) {
  std::string out;
  char buf[1000];
  while (s.read(buf, sizeof buf) || s.gcount() > 0)
    out.append(buf, s.gcount());
  return out;
}

int bufferError(QorvaConnector& c) {
  return static_cast<qco::QorvaStreamBuf*>(c.stream().rdbuf())->error;
}

std::string pattern(std::size_t n) {
  std::string s(n, '\0');
  for (std::size_t i = 0; i < n; ++i)
    s[i] = static_cast<char>('a' + i % 26);
  return s;
}

TEST(QcoConnector, ReadsAMessageWhateverItsFrames) {
  const std::string payload = pattern(40000);
  for (std::size_t chunk : {std::size_t(1), std::size_t(3), std::size_t(4096),
                            std::size_t(QorvaConnector::max_frame_length)}) {
    SocketPair sp;
    QorvaConnector c(sp.host);
    // Small frames are sent while the reader already waits, so frames arrive split anywhere.
    std::thread writer([&] { sendAll(sp.peer, message(payload, chunk)); });
    EXPECT_TRUE(readToEnd(c.stream()) == payload) << "chunk " << chunk;
    writer.join();
    EXPECT_TRUE(c.stream().eof());
    EXPECT_EQ(bufferError(c), 0);
    EXPECT_EQ(static_cast<qco::QorvaStreamBuf*>(c.stream().rdbuf())->connector, &c);
  }
}

TEST(QcoConnector, ServesSeveralMessagesOnOneConnectionSkippingUnreadData) {
  SocketPair sp;
  QorvaConnector c(sp.host);
  // All three requests are on the wire before the first is read.
  ASSERT_TRUE(sendAll(
      sp.peer, message("first request", 4) + message(pattern(50000), 777) + message("third")));
  char first[5];
  c.stream().read(first, 5);
  ASSERT_EQ(std::string(first, 5), "first");
  c.stream() << "one";
  ASSERT_EQ(c.PrepareToReceive(), 0);
  EXPECT_TRUE(c.stream().good());

  // Second request: one byte read, the rest left unread.
  EXPECT_EQ(c.stream().get(), 'a');
  ASSERT_EQ(c.PrepareToReceive(), 0);
  EXPECT_EQ(readToEnd(c.stream()), "third");
  c.stream().clear();  // reading to the end left eofbit and failbit
  c.stream() << "three";
  ASSERT_EQ(c.PrepareToReceive(), 0);

  EXPECT_EQ(receiveMessage(sp.peer), "one");
  EXPECT_EQ(receiveMessage(sp.peer), "");
  EXPECT_EQ(receiveMessage(sp.peer), "three");
}

TEST(QcoConnector, ResponseFramesAreByteExact) {
  SocketPair sp;
  QorvaConnector c(sp.host);
  c.stream() << "hello";
  c.stream().flush();
  c.stream().flush();  // nothing pending: no frame, in particular no end frame
  const std::string big = pattern(40000);
  c.stream().write(big.data(), static_cast<std::streamsize>(big.size()));
  ASSERT_EQ(c.PrepareToReceive(), 0);
  const std::string expected = frame("hello") + frame(big.substr(0, 16384)) +
                               frame(big.substr(16384, 16384)) + frame(big.substr(32768)) + u32(0);
  EXPECT_EQ(receiveBytes(sp.peer, expected.size() + 1, 200), expected);
}

struct EndCase {
  const char* name;
  std::string sent;  // what the peer sends before it closes
  int code;
};

TEST(QcoConnector, PeerClosingGivesItsCode) {
  const EndCase cases[] = {
      {"nothing", "", QorvaConnector::connection_ended},
      {"part of a frame header", std::string("\0\0", 2), QorvaConnector::closed_in_message},
      {"part of a payload", u32(10) + "abc", QorvaConnector::closed_in_message},
      {"a frame without end frame", frame("abc"), QorvaConnector::closed_in_message},
      {"length 0xFFFF, few bytes", u32(0xFFFF) + "xy", QorvaConnector::closed_in_message},
      {"length at the limit", u32(QorvaConnector::max_frame_length) + "xy",
       QorvaConnector::closed_in_message},
      {"length above the limit", u32(QorvaConnector::max_frame_length + 1),
       QorvaConnector::malformed_frame},
      {"huge length", u32(0xFFFFFFFF) + "xy", QorvaConnector::malformed_frame},
  };
  for (const EndCase& k : cases) {
    SocketPair sp;
    QorvaConnector c(sp.host);
    ASSERT_TRUE(sendAll(sp.peer, k.sent));
    sp.closePeer();
    readToEnd(c.stream());
    EXPECT_TRUE(c.stream().eof()) << k.name;
    EXPECT_EQ(bufferError(c), k.code) << k.name;
    EXPECT_EQ(c.lastError(), k.code) << k.name;
    // A failed connection stays failed and cannot be turned round.
    EXPECT_EQ(c.PrepareToReceive(), k.code) << k.name;
  }
}

TEST(QcoConnector, PeerClosingAfterAMessageEndsTheConnection) {
  SocketPair sp;
  QorvaConnector c(sp.host);
  ASSERT_TRUE(sendAll(sp.peer, message("only")));
  EXPECT_EQ(readToEnd(c.stream()), "only");
  ASSERT_EQ(c.PrepareToReceive(), 0);
  sp.closePeer();
  EXPECT_EQ(c.stream().get(), std::char_traits<char>::eof());
  EXPECT_EQ(bufferError(c), QorvaConnector::connection_ended);
}

TEST(QcoConnector, SilentPeerInsideAMessageTimesOut) {
  for (const std::string& sent : {frame("abc"), std::string("\0", 1)}) {
    SocketPair sp;
    QorvaConnector c(sp.host);
    c.setTimeout(100);
    ASSERT_TRUE(sendAll(sp.peer, sent));
    const auto start = std::chrono::steady_clock::now();
    readToEnd(c.stream());
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(bufferError(c), QorvaConnector::timed_out);
    EXPECT_GE(waited, std::chrono::milliseconds(100));
    EXPECT_LT(waited, std::chrono::seconds(10));
  }
}

TEST(QcoConnector, PeerThatStopsReadingFailsTheWriteAfterTheTimeout) {
  SocketPair sp;
  QorvaConnector c(sp.host);
  c.setTimeout(100);
  const std::string block = pattern(1 << 20);
  for (int i = 0; i < 64 && c.stream().good(); ++i) {
    c.stream().write(block.data(), static_cast<std::streamsize>(block.size()));
  }
  EXPECT_FALSE(c.stream().good());
  EXPECT_EQ(bufferError(c), QorvaConnector::timed_out);
}

// The default SIGPIPE action would end the test program; the check below makes sure no SIGPIPE
// was left pending either.
bool sigpipePending() {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, SIGPIPE) == 1;
}

TEST(QcoConnector, WritingToAClosedPeerRaisesNoSignal) {
  {
    SocketPair sp;
    QorvaConnector c(sp.host);
    sp.closePeer();
    c.stream() << "lost";
    c.stream().flush();
    EXPECT_TRUE(c.stream().bad());
    EXPECT_EQ(bufferError(c), QorvaConnector::peer_closed);
    EXPECT_EQ(c.PrepareToReceive(), QorvaConnector::peer_closed);
  }
  {
    int in[2], out[2];
    ASSERT_EQ(pipe(in), 0);
    ASSERT_EQ(pipe(out), 0);
    close(out[0]);
    {
      QorvaConnector c(in[0], out[1]);
      EXPECT_EQ(c.PrepareToReceive(), QorvaConnector::peer_closed);
    }
    close(in[0]);
    close(in[1]);
    close(out[1]);
  }
  EXPECT_FALSE(sigpipePending());
}

TEST(QcoConnector, WorksOverTwoPipes) {
  int in[2], out[2];
  ASSERT_EQ(pipe(in), 0);
  ASSERT_EQ(pipe(out), 0);
  {
    QorvaConnector c(in[0], out[1]);
    ASSERT_TRUE(write(in[1], message("posted", 2).data(), message("posted", 2).size()) > 0);
    EXPECT_EQ(readToEnd(c.stream()), "posted");
    c.stream().clear();
    c.stream() << "answer";
    ASSERT_EQ(c.PrepareToReceive(), 0);
    EXPECT_EQ(receiveMessage(out[0]), "answer");
  }
  // The connector never closes its descriptors.
  EXPECT_NE(fcntl(in[0], F_GETFD), -1);
  EXPECT_NE(fcntl(out[1], F_GETFD), -1);
  for (int fd : {in[0], in[1], out[0], out[1]})
    close(fd);
}

TEST(QcoConnector, EveryCodeHasItsOwnName) {
  const int codes[] = {0, 1, 2, 3, 4, 5, 6, 17};
  for (int a : codes) {
    ASSERT_NE(QorvaConnector::ErrorNameOf(a), nullptr);
    EXPECT_STRNE(QorvaConnector::ErrorNameOf(a), "Unknown error") << a;
    for (int b : codes) {
      if (a == b) continue;
      EXPECT_STRNE(QorvaConnector::ErrorNameOf(a), QorvaConnector::ErrorNameOf(b));
    }
  }
  EXPECT_STREQ(QorvaConnector::ErrorNameOf(-1), "Unknown error");
  EXPECT_STREQ(QorvaConnector::ErrorNameOf(18), "Unknown error");
}

}  // namespace
