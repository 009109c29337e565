// The stand-in connector on its own, without the library: a peer that stops reading fails the
// write after the timeout; pipes instead of a socket, without SIGPIPE.
#include <unistd.h>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include <qco/qco.hpp>
#include "qco_test_util.hpp"

using qco::QorvaConnector;
using namespace qcotest;

namespace {

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

// Over two pipes the connector writes with write(): a reader that has gone fails the write without
// a SIGPIPE (which would end the program). The connector never closes the descriptors it was given.
TEST(QcoConnector, WorksOverTwoPipes) {
  int in[2], out[2];
  ASSERT_TRUE(pipe(in) == 0 && pipe(out) == 0);
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
  for (int fd : {in[0], in[1], out[1]})
    EXPECT_EQ(close(fd), 0);  // still open
}

}  // namespace
