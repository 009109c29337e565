// Destroying a context, and the host's own connector handle, while a stream the library handed
// out throws on failure (the host set exceptions(failbit|badbit) on it).
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <qco/qco.hpp>
#include <wsi/qco_handle.hpp>
#include <wsi/wsi.h>
#include <wsi/wsi.hpp>
#include "data_table.hpp"
#include "golden_calls.hpp"
#include "ios_test_util.hpp"
#include "qco_test_util.hpp"

namespace {

const std::ios_base::iostate kMask = std::ios_base::failbit | std::ios_base::badbit;

// The state of `s` as a word: "bad", "fail" or "good".
std::string stateOf(const std::ios& s) {
  return s.bad() ? "bad" : s.fail() ? "fail" : "good";
}

// One row over "files": the output file afterwards (the masked stream dies with the handle).
std::string runFiles(const wsi_test::Row& row) {
  wsi_test::TempDir dir;
  wsi_test::writeFile(dir / "config", "URL=/x");
  if (row[1] != "missing posted file") wsi_test::writeFile(dir / "posted", "body");
  const std::string out = row[1] == "output is /dev/full" ? "/dev/full" : dir / "out";
  const std::string spec = "files(" + dir / "config" + "*" + dir / "posted" + "*" + out + ")";
  wsi_test::runExchange(spec, nullptr, row[2]);
  return (out == "/dev/full" ? "-" : wsi_test::readFile(out)) + "\t-";
}

// One row over "streams": the host masks its own output stream before the context exists.
std::string runStreams(const wsi_test::Row& row) {
  std::istringstream config("URL=/x"), posted("body");
  wsi_test::FailingSync failing;
  std::stringbuf plain;
  std::ostream output(row[1] == "failing flush" ? static_cast<std::stringbuf*>(&failing) : &plain);
  output.exceptions(kMask);
  void* args[] = {&config, &posted, &output};
  wsi_test::runExchange("streams(0,1,2)", args, row[2]);
  return static_cast<std::stringbuf*>(output.rdbuf())->str() + "\t" + stateOf(output);
}

// One row over "handle": the host masks its connector's stream, lends its handle to a context
// and destroys the handle itself afterwards. The output is what the web server received.
std::string runConnector(const wsi_test::Row& row) {
  qcotest::SocketPair sp;
  qco::QorvaConnector connector(sp.host);
  qcotest::sendAll(sp.peer, qcotest::message(qcotest::variable("REQUEST_METHOD", "GET") + "\x80"));
  connector.stream().exceptions(kMask);
  {
    wsi::QcoHandle handle(connector);
    if (row[1] == "peer gone") sp.closePeer();
    void* args[] = {&handle};
    wsi_test::runExchange("handle(0)", args, row[2]);
  }
  return (sp.peer >= 0 ? qcotest::receiveMessage(sp.peer) : "") + "\t" +
         stateOf(connector.stream());
}

// Each row runs in a child process, which exits with 0 only when the row's result is the expected
// one, so that a destructor that ends the process fails its row instead of the program.
TEST(Destructors, NeverEndTheProcessOnAMaskedStream) {
  for (const wsi_test::Row& row : wsi_test::readTable("destructor_masks.tsv")) {
    SCOPED_TRACE("destructor_masks.tsv line " + std::to_string(row.line));
    EXPECT_EXIT(
        {
          const std::string got = row[0] == "files"     ? runFiles(row)
                                  : row[0] == "streams" ? runStreams(row)
                                                        : runConnector(row);
          std::fprintf(stderr, "got: %s", got.c_str());
          std::_Exit(got == row[3] + "\t" + row[4] ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
  }
}

}  // namespace
