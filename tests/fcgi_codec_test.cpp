// The FastCGI record codec over byte strings: the cases of tests/data/fcgi_codec.tsv fed whole, in
// two pieces at every split point and one byte at a time; the records it writes, byte for byte.
#include "wsi/common/wsifcgi/fcgi_codec.hpp"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "data_table.hpp"
#include "fcgi_client.hpp"

using namespace fcgitest;
using wsi::fcgi::Codec;
using wsi::fcgi::PairLimits;

namespace {

// Everything the codec holds, as one line (after an error: the error and any replies).
std::string state(Codec& codec) {
  std::ostringstream out;
  if (codec.failed()) {
    out << "error: " << codec.error();
  } else {
    out << (codec.idle() ? "idle" : codec.requestReady() ? "ready" : "reading");
    if (codec.requestReady()) {
      out << " id=" << codec.requestId() << (codec.keepConnection() ? " keep" : "");
      for (const auto& p : codec.params())
        out << " [" << p.first << "=" << p.second << "]";
      out << " stdin=" << codec.stdinData() << (codec.stdinEnded() ? " ended" : "");
    }
    if (codec.aborted()) out << " aborted";
  }
  if (!codec.replies().empty()) out << " replies=" << codec.replies();
  return out.str();
}

// The state after `input` fed in pieces of `first`, then `piece` bytes; feed() fails on error only.
std::string fed(const std::string& input, const PairLimits& limits, std::size_t first,
                std::size_t piece) {
  Codec codec(limits, 50);
  bool ok = true;
  for (std::size_t at = 0, n = first; at < input.size(); at += n, n = piece)
    ok = codec.feed(input.data() + at, std::min(n, input.size() - at)) && ok;
  EXPECT_EQ(!codec.failed(), ok) << "what feed returned";
  return state(codec);
}

TEST(Codec, SameStateWhateverThePieces) {
  for (const wsi_test::Row& row : wsi_test::readTable("fcgi_codec.tsv")) {
    SCOPED_TRACE(row[0] + " (fcgi_codec.tsv line " + std::to_string(row.line) + ")");
    const std::string input = wire(row[2]);
    PairLimits limits = {262144, 65536, 1000};  // unless the row gives TOTAL/ONE/COUNT
    std::sscanf(row[1].c_str(), "%u/%u/%u", &limits.max_total, &limits.max_one, &limits.max_count);
    const std::string expected =
        expand(row[3]) + (row.fields.size() > 4 ? " replies=" + wire(row[4]) : "");
    EXPECT_EQ(expected, fed(input, limits, input.size(), input.size()));
    for (std::size_t split = 1; split < input.size() && input.size() < 2000; ++split)
      ASSERT_EQ(expected, fed(input, limits, split, input.size())) << "split at " << split;
    EXPECT_EQ(expected, fed(input, limits, 1, 1));
  }
}

TEST(Records, WrittenByteForByte) {
  using namespace wsi::fcgi;
  std::string out;
  appendRecord(out, kStdout, 0x1234, "abc", 3);  // padded to 8
  appendRecord(out, kStdout, 1, "", 0);
  appendEndRequest(out, 258, 0x01020304, kCantMpxConn);
  appendPair(out, std::string(127, 'a'), std::string(128, 'b'));
  appendStream(out, kStdout, 1, "", 0);  // nothing
  // 65,535 bytes and one of padding, then 9 bytes and 7 of padding.
  appendStream(out, kStdout, 3, std::string(65535 + 9, 'x').data(), 65535 + 9);
  EXPECT_EQ(wire("rec:6:0x1234:abc:5 rec:6:1: end:258:0x01020304:1") +
                pair(std::string(127, 'a'), std::string(128, 'b')) +
                wire("rec:6:3:{65535*x}:1 rec:6:3:{9*x}:7"),
            out);
}

}  // namespace
