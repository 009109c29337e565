// Destroying a context, and the host's own connector handle, while a stream the library handed
// out throws on failure (the host set exceptions(failbit|badbit) on it).
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <qco/qco.hpp>
#include <wsi/qco_handle.hpp>
#include <wsi/wsi.h>
#include <wsi/wsi.hpp>
#include "data_table.hpp"
#include "ios_test_util.hpp"
#include "qco_test_util.hpp"

namespace {

const std::ios_base::iostate kMask = std::ios_base::failbit | std::ios_base::badbit;

// The state of `s` as a word: "bad", "fail" or "good".
std::string stateOf(const std::ios& s) {
  return s.bad() ? "bad" : s.fail() ? "fail" : "good";
}

// Puts the mask on `s`; the host's own call throws at once when `s` has already failed.
void mask(std::ios* s) {
  try {
    s->exceptions(kMask);
  } catch (const std::ios_base::failure&) {
  }
}

// Runs the host's steps ("beginWrite", "endWrite", space-separated) on `handle`. The first
// step may hand out the stream that `masked` names ("posted": beginRead(), "output":
// beginWrite()); the host then puts its mask on it. What a masked stream throws at the host is
// the host's to catch.
void runSteps(wsi::Handle& handle, const std::string& steps, const std::string& masked = "") {
  if (masked == "posted") mask(handle.Request().beginRead());
  std::istringstream words(steps);
  for (std::string step; words >> step;) {
    try {
      if (step == "beginWrite") {
        std::ostream* const out = handle.Response().beginWrite();
        if (masked == "output") mask(out);
      } else if (step == "endWrite") {
        handle.Response().endWrite();
      } else {
        throw std::invalid_argument("unknown step " + step);
      }
    } catch (const std::ios_base::failure&) {
    }
  }
}

// One row over "files": the output file afterwards (the masked stream dies with the handle).
std::string runFiles(const wsi_test::Row& row) {
  wsi_test::TempDir dir;
  wsi_test::writeFile(dir / "config", "URL=/x");
  if (row[2] != "missing posted file") wsi_test::writeFile(dir / "posted", "body");
  const std::string out = row[2] == "output is /dev/full" ? "/dev/full" : dir / "out";
  const std::string spec = "files(" + dir / "config" + "*" + dir / "posted" + "*" + out + ")";
  void* context = WSI_CreateContext(spec.data(), spec.size(), nullptr);
  runSteps(*static_cast<wsi::Handle*>(WSI_ContextGetHandle(context)), row[3], row[1]);
  WSI_DestroyContext(&context);
  return (out == "/dev/full" ? "-" : wsi_test::readFile(out)) + "\t-";
}

// One row over "streams": the host masks its own output stream before the context exists.
std::string runStreams(const wsi_test::Row& row) {
  std::istringstream config("URL=/x"), posted("body");
  wsi_test::FailingSync failing;
  std::stringbuf plain;
  std::ostream output(row[2] == "failing flush" ? static_cast<std::stringbuf*>(&failing) : &plain);
  output.exceptions(kMask);
  void* args[] = {&config, &posted, &output};
  void* context = WSI_CreateContext("streams(0,1,2)", 14, args);
  runSteps(*static_cast<wsi::Handle*>(WSI_ContextGetHandle(context)), row[3]);
  WSI_DestroyContext(&context);
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
    if (row[2] == "peer gone") sp.closePeer();
    void* args[] = {&handle};
    void* context = WSI_CreateContext("handle(0)", 9, args);
    runSteps(handle, row[3]);
    WSI_DestroyContext(&context);
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
          std::_Exit(got == row[4] + "\t" + row[5] ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
  }
}

}  // namespace
