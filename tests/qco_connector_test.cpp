// The stand-in connector on its own, without the library: how a request message fails when the
// peer closes, stays silent or sends a malformed frame; the write timeout; pipes and SIGPIPE.
#include <fcntl.h>
#include <chrono>
#include <iterator>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include <qco/qco.hpp>
#include "data_table.hpp"
#include "qco_test_util.hpp"

using qco::QorvaConnector;
using namespace qcotest;

namespace {

TEST(QcoConnector, RequestMessageEndsWithTheCodeOfItsFailure) {
  for (const wsi_test::Row& row : wsi_test::readTable("qco_connector_failures.tsv")) {
    SCOPED_TRACE(row[0] + " (line " + std::to_string(row.line) + ")");
    SocketPair sp;
    QorvaConnector conn(sp.host);
    conn.setTimeout(100);
    ASSERT_TRUE(sendAll(sp.peer, wire(row[1])));
    if (row[2] == "close") sp.closePeer();
    const auto start = std::chrono::steady_clock::now();
    conn.stream().ignore(std::numeric_limits<std::streamsize>::max());
    // A silent peer fails the message only once the timeout has passed.
    EXPECT_TRUE(row[2] == "close" ||
                std::chrono::steady_clock::now() - start >= std::chrono::milliseconds(100));
    EXPECT_EQ(conn.lastError(), std::stoi(row[3]));
    EXPECT_EQ(QorvaConnector::ErrorNameOf(conn.lastError()), row[4]);
    EXPECT_EQ(conn.PrepareToReceive(), std::stoi(row[3]));  // a failed connection stays failed
  }
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
