// The FastCGI record codec over byte strings: every case fed whole, in two pieces at every split
// point and one byte at a time must end in the same state; the records it writes, byte for byte.
#include "wsi/common/wsifcgi/fcgi_codec.hpp"

#include <cstdint>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "fcgi_client.hpp"

using namespace fcgitest;
using wsi::fcgi::Codec;
using wsi::fcgi::PairLimits;

namespace {

const PairLimits kDefaultLimits = {256 * 1024, 64 * 1024, 1000};
const PairLimits kSmallLimits = {40, 16, 3};

std::string hex(const std::string& bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes)
    (out += digits[c >> 4]) += digits[c & 15];
  return out;
}

// Everything the codec holds after its input, as one line.
std::string state(Codec& codec) {
  if (codec.failed()) return "error: " + codec.error();
  std::ostringstream out;
  out << (codec.idle() ? "idle" : codec.requestReady() ? "ready" : "reading");
  if (codec.requestReady()) {
    out << " id=" << codec.requestId() << (codec.keepConnection() ? " keep" : "");
    for (const auto& p : codec.params())
      out << " [" << p.first << "=" << p.second << "]";
    out << " stdin=" << codec.stdinData() << (codec.stdinEnded() ? " ended" : "");
  }
  if (codec.aborted()) out << " aborted";
  if (!codec.replies().empty()) out << " replies=" << hex(codec.replies());
  return out.str();
}

std::string fedWhole(const std::string& input, const PairLimits& limits) {
  Codec codec(limits, 50);
  codec.feed(input.data(), input.size());
  return state(codec);
}

struct Case {
  const char* name;
  std::string input;
  std::string expected;
  PairLimits limits;
};

const std::string kGetPairs = pair("REQUEST_METHOD", "GET") + pair("QUERY_STRING", "a=1");
const std::string kLongName(200, 'n');
const std::string kLongPairs = pair(kLongName, "v") + pair("X", std::string(300, 'w'));
// End-request records the codec answers with: id 2, protocol status 1 (cannot multiplex) and 3
// (unknown role).
const std::string kCantMpx2 =
    "0103000200080000"
    "0000000001000000";
const std::string kUnknownRole1 =
    "0103000100080000"
    "0000000003000000";

const Case kCases[] = {
    {"get", request(1, kGetPairs),
     "ready id=1 keep [REQUEST_METHOD=GET] [QUERY_STRING=a=1] stdin= ended", kDefaultLimits},
    {"post in padded records, not kept",
     begin(7, 1, 0) + record(4, 7, pair("A", "1"), 7) + record(4, 7, "", 255) +
         record(5, 7, "hello ", 2) + record(5, 7, "world", 3) + record(5, 7, "", 1),
     "ready id=7 [A=1] stdin=hello world ended", kDefaultLimits},
    {"pairs across records",
     begin(1) + params(1, kLongPairs.substr(0, 2)) + params(1, kLongPairs.substr(2, 3)) +
         params(1, kLongPairs.substr(5, 250)) + params(1, kLongPairs.substr(255)) + params(1, "") +
         stdinRecord(1, ""),
     "ready id=1 keep [" + kLongName + "=v] [X=" + std::string(300, 'w') + "] stdin= ended",
     kDefaultLimits},
    {"empty names and values", request(1, pair("", "") + pair("E", "")),
     "ready id=1 keep [=] [E=] stdin= ended", kDefaultLimits},
    {"parameters not ended", begin(1) + params(1, kGetPairs), "reading", kDefaultLimits},
    {"posted data not ended", begin(1) + params(1, "") + stdinRecord(1, "ab"),
     "ready id=1 keep stdin=ab", kDefaultLimits},
    {"records of other requests and filter data are ignored",
     begin(1) + params(2, pair("B", "2")) + params(1, "") + stdinRecord(3, "zz") +
         record(8, 1, "data") + stdinRecord(1, ""),
     "ready id=1 keep stdin= ended", kDefaultLimits},
    {"records only a responder sends are ignored",
     begin(1) + params(1, "") + record(3, 1, std::string(8, '\0')) + record(6, 1, "o") +
         record(7, 1, "e") + record(10, 1, "") + record(11, 1, std::string(8, '\0')) +
         stdinRecord(1, ""),
     "ready id=1 keep stdin= ended", kDefaultLimits},
    {"second request on a busy connection",
     begin(1) + begin(2) + params(1, "") + stdinRecord(1, ""),
     "ready id=1 keep stdin= ended replies=" + kCantMpx2, kDefaultLimits},
    {"a role other than responder", begin(1, 2), "idle replies=" + kUnknownRole1, kDefaultLimits},
    {"abort of the current request", request(1, "") + record(2, 1, ""),
     "ready id=1 keep stdin= ended aborted", kDefaultLimits},
    {"abort of another request", request(1, "") + record(2, 9, ""), "ready id=1 keep stdin= ended",
     kDefaultLimits},
    {"get-values",
     record(9, 0,
            pair("FCGI_MAX_CONNS", "") + pair("FCGI_MAX_REQS", "") + pair("FCGI_MPXS_CONNS", "") +
                pair("OTHER", "") + pair("FCGI_MAX_CONNS", "")),
     "idle replies=010a000000350300" +
         hex(pair("FCGI_MAX_CONNS", "50") + pair("FCGI_MAX_REQS", "50") +
             pair("FCGI_MPXS_CONNS", "0")) +
         "000000",
     kDefaultLimits},
    {"get-values during posted data",
     begin(1) + params(1, "") + record(9, 0, pair("FCGI_MPXS_CONNS", "")) + stdinRecord(1, "x"),
     "ready id=1 keep stdin=x replies=010a000000120600" + hex(pair("FCGI_MPXS_CONNS", "0")) +
         "000000000000",
     kDefaultLimits},
    {"unknown management record", record(0x20, 0, "abc", 5),
     "idle replies=010b000000080000"
     "2000000000000000",
     kDefaultLimits},
    {"a record type only a responder sends, as management", record(6, 0, ""),
     "idle replies=010b000000080000"
     "0600000000000000",
     kDefaultLimits},
    {"longest record and padding", record(8, 1, std::string(65535, 'd'), 255) + begin(1), "reading",
     kDefaultLimits},
    {"protocol version 2", "\2" + record(1, 1, "").substr(1),
     "error: a record of protocol version 2", kDefaultLimits},
    {"short begin-request", record(1, 1, "1234567"), "error: a begin-request record of 7 bytes",
     kDefaultLimits},
    {"posted data before the parameters end", begin(1) + stdinRecord(1, "x"),
     "error: posted data before the end of the parameters", kDefaultLimits},
    {"posted data after its end", request(1, "") + stdinRecord(1, "x"),
     "error: posted data after its end", kDefaultLimits},
    {"parameters after their end", request(1, "") + params(1, pair("A", "1")),
     "error: parameters after their end", kDefaultLimits},
    {"parameters end inside a pair",
     begin(1) + params(1, pair("ABC", "1").substr(0, 3)) + params(1, ""),
     "error: the parameters end inside a name-value pair", kDefaultLimits},
    {"name at its limit", request(1, pair(std::string(16, 'n'), "")),
     "ready id=1 keep [" + std::string(16, 'n') + "=] stdin= ended", kSmallLimits},
    {"name over its limit", request(1, pair(std::string(17, 'n'), "")),
     "error: a parameter name or value of 17 bytes (limit 16)", kSmallLimits},
    {"value over its limit", request(1, pair("n", std::string(17, 'v'))),
     "error: a parameter name or value of 17 bytes (limit 16)", kSmallLimits},
    {"total over its limit",
     request(1, pair(std::string(16, 'a'), std::string(16, 'b')) + pair("c", std::string(8, 'd'))),
     "error: parameters longer than 40 bytes", kSmallLimits},
    {"count over its limit",
     request(1, pair("a", "") + pair("b", "") + pair("c", "") + pair("d", "")),
     "error: more than 3 parameters", kSmallLimits},
    {"lengths at the 31-bit maximum", begin(1) + params(1, "\xff\xff\xff\xff\xff\xff\xff\xff"),
     "error: a parameter name or value of 2147483647 bytes (limit 65536)", kDefaultLimits},
    {"lengths whose sum nears 32 bits",
     begin(1) + params(1, length(0x7fffffff) + length(0x7fffffff)),
     "error: parameters longer than 4294967293 bytes",
     {0xfffffffd, 0xffffffff, 10}},
};

class CodecCases : public ::testing::TestWithParam<Case> {};

TEST_P(CodecCases, SameStateWhateverThePieces) {
  const Case& c = GetParam();
  EXPECT_EQ(fedWhole(c.input, c.limits), c.expected);
  for (std::size_t split = 1; split < c.input.size() && c.input.size() < 2000; ++split) {
    Codec codec(c.limits, 50);
    codec.feed(c.input.data(), split);
    codec.feed(c.input.data() + split, c.input.size() - split);
    ASSERT_EQ(state(codec), c.expected) << "split at " << split;
  }
  Codec bytewise(c.limits, 50);
  for (char byte : c.input)
    bytewise.feed(&byte, 1);
  EXPECT_EQ(state(bytewise), c.expected);
}

INSTANTIATE_TEST_SUITE_P(Records, CodecCases, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) {
                           std::string name;
                           for (const char* p = info.param.name; *p; ++p)
                             name += std::isalnum(static_cast<unsigned char>(*p)) ? *p : '_';
                           return name;
                         });

TEST(Codec, TakesTheNextRequestAfterTheEndOfOne) {
  Codec codec(kDefaultLimits, 50);
  const std::string first = request(1, pair("N", "1"), "body");
  const std::string second = request(2, pair("N", "2"));
  codec.feed(first.data(), first.size());
  codec.stdinData().clear();
  codec.endRequest();
  EXPECT_EQ(state(codec), "idle");
  codec.feed(second.data(), second.size());
  EXPECT_EQ(state(codec), "ready id=2 keep [N=2] stdin= ended");
}

TEST(Codec, IgnoresEverythingAfterAProtocolError) {
  Codec codec(kDefaultLimits, 50);
  const std::string input = record(1, 1, "x") + record(9, 0, pair("FCGI_MAX_CONNS", ""));
  EXPECT_FALSE(codec.feed(input.data(), input.size()));
  EXPECT_EQ(state(codec), "error: a begin-request record of 1 bytes");
}

struct Written {
  const char* name;
  std::string bytes;
  std::string expected_hex;
};

std::string written(void (*write)(std::string&)) {
  std::string out;
  write(out);
  return out;
}

TEST(Records, WrittenByteForByte) {
  using namespace wsi::fcgi;
  const Written cases[] = {
      {"stdout padded to 8",
       written([](std::string& o) { appendRecord(o, kStdout, 0x1234, "abc", 3); }),
       "0106123400030500"
       "6162630000000000"},
      {"empty record", written([](std::string& o) { appendRecord(o, kStdout, 1, "", 0); }),
       "0106000100000000"},
      {"end-request",
       written([](std::string& o) { appendEndRequest(o, 258, 0x01020304, kCantMpxConn); }),
       "0103010200080000"
       "0102030401000000"},
      {"short and long pair lengths", written([](std::string& o) {
                                        appendPair(o, std::string(127, 'a'), std::string(128, 'b'));
                                      }).substr(0, 5),
       "7f80000080"},
      {"empty stream", written([](std::string& o) { appendStream(o, kStdout, 1, "", 0); }), ""},
  };
  for (const Written& c : cases)
    EXPECT_EQ(hex(c.bytes), c.expected_hex) << c.name;
}

TEST(Records, LongStreamsSplitAtTheLengthLimit) {
  const std::string data(65535 + 9, 'x');
  std::string out;
  wsi::fcgi::appendStream(out, wsi::fcgi::kStdout, 3, data.data(), data.size());
  // 65,535 bytes and one of padding, then 9 bytes and 7 of padding.
  ASSERT_EQ(out.size(), 8u + 65536 + 8 + 16);
  EXPECT_EQ(hex(out.substr(0, 8)), "01060003ffff0100");
  EXPECT_EQ(hex(out.substr(8 + 65536, 8)), "0106000300090700");
}

}  // namespace
