// The connector's record format over string streams, without sockets, against the tests' own
// encoder: what the codec writes is the encoder's bytes, and what the encoder wrote reads back.
#include "wsi/common/wsiqco/qco_records.hpp"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "qco_test_util.hpp"

namespace records = wsi::qco_records;
using records::LongLength;

namespace {

// One string read from `bytes` as `form` says, then "|" and what is left unread; "<failed>" when
// the read failed and left the string empty.
std::string readBack(const std::string& bytes, LongLength form) {
  std::istringstream in(bytes);
  std::string s = "stale";
  if (!records::readString(in, s, form)) return s.empty() ? "<failed>" : "<failed, not empty>";
  return s + "|" + bytes.substr(static_cast<std::size_t>(in.tellg()));
}

// Both length forms at their edges, whole and cut short by a byte. A long length ORs its two
// 16-bit halves without shifting when the library reads a request, which is how existing web
// servers and hosts agree (0x8001 0x2345 is 0x2345); the peer reads it whole.
TEST(QcoRecords, StringsInBothLengthForms) {
  for (std::size_t n : {0x0, 0x7FFF, 0x8000, 0xFFFF, 0x10000, 0x12345}) {
    SCOPED_TRACE(n);
    const std::string s(n, 'a'), bytes = qcotest::str(s);
    std::string out;
    records::appendString(out, s);
    EXPECT_TRUE(out == bytes);
    EXPECT_TRUE(readBack(bytes, LongLength::full) == s + "|");
    const std::size_t ored = (n >> 16) | (n & 0xFFFF);
    EXPECT_TRUE(readBack(bytes, LongLength::halves_ored) ==
                s.substr(0, ored) + "|" + s.substr(ored));
    EXPECT_EQ(readBack(bytes.substr(0, 1), LongLength::full), "<failed>");
    EXPECT_EQ(readBack(bytes.substr(0, bytes.size() - 1), LongLength::full), "<failed>");
  }
}

TEST(QcoRecords, RecordsAreTheEncodersBytes) {
  std::string out;
  records::appendRecord(out, records::variable, "REQUEST_METHOD", "GET");
  records::appendRecord(out, records::header, "Accept", "*/*");
  records::appendRecord(out, records::content_type, "text/plain");
  records::appendStatus(out, 404);
  records::appendEnd(out);
  EXPECT_EQ(out, qcotest::wire("var:REQUEST_METHOD=GET header:Accept=*/* type:text/plain") +
                     qcotest::status(404) + "\x80");
}

}  // namespace
