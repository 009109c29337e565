// The connector's record strings over string streams, against the tests' own encoder: what the
// codec writes is the encoder's bytes, and what the encoder wrote reads back.
#include "wsi/common/wsiqco/qco_records.hpp"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "qco_test_util.hpp"

namespace records = wsi::qco_records;
using records::LongLength;

namespace {

// One string read from `bytes` as `form` says, then what is left unread; "<failed>" when the read
// failed and left the string empty.
std::string readBack(const std::string& bytes, LongLength form) {
  std::istringstream in(bytes);
  std::string s = "stale";
  if (!records::readString(in, s, form)) return s.empty() ? "<failed>" : "<failed, not empty>";
  return s + "|" + bytes.substr(static_cast<std::size_t>(in.tellg()));
}

// Both length forms at their edges, whole and cut short by a byte. The web server reads a long
// length whole; the library ORs its two 16-bit halves without shifting, which is how existing
// web servers and hosts agree (0x8001 0x2345 is 0x2345).
TEST(QcoRecords, StringsInBothLengthForms) {
  for (std::size_t n : {0x0, 0x1, 0x7FFF, 0x8000, 0xFFFF, 0x10000, 0x12345}) {
    SCOPED_TRACE(n);
    std::string s(n, 'a');
    for (std::size_t i = 0; i < n; i += 7)
      s[i] = static_cast<char>(i);
    const std::string bytes = qcotest::str(s);
    std::string out;
    records::appendString(out, s);
    EXPECT_TRUE(out == bytes);
    EXPECT_TRUE(readBack(bytes, LongLength::full) == s + "|");
    const std::size_t ored = (n >> 16) | (n & 0xFFFF);
    EXPECT_TRUE(readBack(bytes, LongLength::halves_ored) ==
                s.substr(0, ored) + "|" + s.substr(ored));
    // Cut short by a byte: inside the length, or inside the bytes that each form needs.
    const std::size_t needed = bytes.size() - (n - ored);
    for (std::size_t cut : {std::size_t(1), bytes.size() - 1})
      EXPECT_TRUE(readBack(bytes.substr(0, cut), LongLength::full) == "<failed>") << cut;
    for (std::size_t cut : {std::size_t(1), needed - 1})
      EXPECT_TRUE(readBack(bytes.substr(0, cut), LongLength::halves_ored) == "<failed>") << cut;
  }
}

}  // namespace
