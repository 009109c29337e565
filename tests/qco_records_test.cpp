// The connector's record format over string streams, against the tests' own encoder: what the
// codec writes is the encoder's bytes, and what the encoder wrote reads back.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "peer_records.hpp"
#include "qco_test_util.hpp"
#include "wsi/common/wsiqco/qco_records.hpp"

namespace records = wsi::qco_records;
using records::LongLength;

namespace {

// Reads one string of `bytes` as `form` says; "<failed>" when it is cut short, and what is left
// unread after it otherwise.
std::string readBack(const std::string& bytes, LongLength form, std::string* rest = nullptr) {
  std::istringstream in(bytes);
  std::string s = "stale";
  if (!records::readString(in, s, form)) return s.empty() ? "<failed>" : "<failed, not empty>";
  if (rest) *rest = bytes.substr(static_cast<std::size_t>(in.tellg()));
  return s;
}

// Both length forms and their edges: the web server reads a long form back whole, the library
// ORs its two 16-bit halves without shifting, which is how existing web servers and hosts agree.
TEST(QcoRecords, StringsInBothLengthForms) {
  for (std::size_t n : {0x0, 0x1, 0x7FFF, 0x8000, 0xFFFF, 0x10000, 0x12345}) {
    SCOPED_TRACE(n);
    const std::size_t ored = (n >> 16) | (n & 0xFFFF);
    std::string s(n, 'a');
    for (std::size_t i = 0; i < n; i += 7)
      s[i] = static_cast<char>(i);
    std::ostringstream out;
    records::writeString(out, s);
    EXPECT_TRUE(out.str() == qcotest::str(s));
    std::string rest;
    EXPECT_TRUE(readBack(qcotest::str(s) + "next", LongLength::full, &rest) == s);
    EXPECT_EQ(rest, "next");
    EXPECT_TRUE(readBack(qcotest::str(s), LongLength::halves_ored, &rest) == s.substr(0, ored));
    EXPECT_EQ(rest.size(), n - ored);
  }
  // 0x8001 0x0002 is 3 for the library; for the web server it is 0x10002.
  EXPECT_EQ(readBack(std::string("\x80\x01\x00\x02", 4) + "abcd", LongLength::halves_ored), "abc");
  EXPECT_EQ(readBack(std::string("\x80\x01\x00\x02", 4) + "abcd", LongLength::full), "<failed>");
}

TEST(QcoRecords, StringCutShortReadsAsFailedAndEmpty) {
  const std::string long_form = qcotest::str(std::string(0x8000, 'x'));
  for (const std::string& bytes :
       {std::string(), std::string("\x00", 1),
        std::string("\x00\x03"
                    "ab",
                    4),
        long_form.substr(0, 3), long_form.substr(0, long_form.size() - 1)}) {
    EXPECT_EQ(readBack(bytes, LongLength::halves_ored), "<failed>") << bytes.size();
    EXPECT_EQ(readBack(bytes, LongLength::full), "<failed>") << bytes.size();
  }
}

TEST(QcoRecords, RecordsAreTheEncodersBytes) {
  std::ostringstream out;
  records::writeRecord(out, records::variable, "REQUEST_METHOD", "GET");
  records::writeRecord(out, records::header, "Accept", std::string(40000, 'v'));
  records::writeRecord(out, records::content_type, "text/plain");
  records::writeStatus(out, 404);
  records::writeStatus(out, -1);
  records::writeEnd(out);
  EXPECT_TRUE(out.str() == qcotest::variable("REQUEST_METHOD", "GET") +
                               qcotest::header("Accept", std::string(40000, 'v')) +
                               qcotest::contentType("text/plain") + qcotest::status(404) +
                               qcotest::status(-1) + "\x80");
  std::istringstream in(qcotest::status(404).substr(1) + qcotest::status(-1).substr(1) + "\x80");
  int code = 0;
  unsigned char type = 0;
  EXPECT_TRUE(records::readStatus(in, code) && code == 404);
  EXPECT_TRUE(records::readStatus(in, code) && code == -1);
  EXPECT_TRUE(records::readType(in, type) && type == records::end);
  EXPECT_FALSE(records::readType(in, type) || records::readStatus(in, code));
  EXPECT_EQ(code, -1);
}

// The peer's reading of a response block: the HTTP text, or what is wrong with the block.
TEST(QcoRecords, PeerDecodesAResponseBlock) {
  const std::string block = qcotest::status(404) + qcotest::contentType("text/html") +
                            qcotest::header("X-Big", std::string(0x10001, 'b')) + "\x80";
  const struct {
    std::string bytes, text, error;
  } cases[] = {
      {block + "body",
       "HTTP/1.1 404 Not Found\nContent-Type: text/html\nX-Big: " + std::string(0x10001, 'b') +
           "\n\nbody",
       ""},
      {qcotest::status(-1) + "\x80", "HTTP/1.1 -1 Invalid Status\n\n", ""},
      {block.substr(0, block.size() - 1), "", "the response ended inside its header block"},
      {block.substr(0, 20), "", "the response ended inside a record of its header block"},
      {"\x02", "", "unknown record type 2 in the response's header block"},
  };
  for (const auto& c : cases) {
    std::istringstream in(c.bytes);
    std::ostringstream out;
    std::string error;
    EXPECT_EQ(peer::decodeResponse(in, out, error), c.error.empty()) << c.error;
    EXPECT_TRUE(out.str() == c.text) << c.error;
    EXPECT_EQ(error, c.error);
  }
}

}  // namespace
