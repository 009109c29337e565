// The case-insensitive compare and the ordering of the name tables.
#include <gtest/gtest.h>

#include <string>

#include <wsi/less_nocase.hpp>
#include <wx/char_casing.hpp>
#include <wx/char_to_numeric.hpp>

namespace {

typedef wx::char_casing<char, wx::language::english> Casing;

struct CompareCase {
  const char* a;
  const char* b;
  int expected;
};

TEST(NocaseCompare, Unbounded) {
  const CompareCase cases[] = {
      {"abc", "ABC", 0},
      {"ab", "abc", -1},
      {"abc", "ab", 1},
      {"a", "B", -1},
      {"", "", 0},
      {"", "a", -1},
      {"a", "", 1},
      {"Content-Type", "content-type", 0},
      {"ab", "a_", -1},  // 'b' compares as 'B' (0x42), below '_' (0x5F)
      {"a_", "AB", 1},
      {"[", "a", 1},      // '[' (0x5B) is above 'A' (0x41)
      {"\xe9", "a", -1},  // bytes from 0x80 order before ASCII: signed comparison
      {"a", "\xe9", 1},
      {"\xe9", "\xc9", 1},  // no folding outside ASCII
      {"Accept", "Accept-Language", -1},
  };
  for (const CompareCase& c : cases)
    EXPECT_EQ(c.expected, Casing::nocase_compare(c.a, c.b)) << c.a << " / " << c.b;
}

struct BoundedCase {
  const char* a;
  const char* b;
  unsigned long n;
  int expected;
};

TEST(NocaseCompare, Bounded) {
  const BoundedCase cases[] = {
      {"abc", "ABD", 2, 0},        {"abc", "ABD", 3, -1},      {"ab", "abc", 5, -1},
      {"abc", "ab", 5, 1},         {"HANDLE", "handle", 6, 0}, {"hand", "handle", 4, 0},
      {"handlex", "handle", 6, 0}, {"x", "y", 1, -1},          {"", "", 3, 0},
  };
  for (const BoundedCase& c : cases)
    EXPECT_EQ(c.expected, Casing::nocase_compare(c.a, c.b, c.n)) << c.a << " / " << c.b;
}

TEST(NocaseCompare, BoundedZeroReadsNothing) {
  // Neither pointer is dereferenced when n is 0.
  EXPECT_EQ(0, Casing::nocase_compare(nullptr, nullptr, 0));
}

TEST(Tables, UpperCaseIsIdentityExceptAsciiLetters) {
  for (int c = 0; c < 256; ++c) {
    const int expected = c >= 'a' && c <= 'z' ? c - 32 : c;
    EXPECT_EQ(expected, static_cast<unsigned char>(Casing::ascii_toupper_[c])) << c;
  }
}

TEST(Tables, DigitValues) {
  const signed char* tonum = wx::basic_char_to_numeric<char, wx::encoding::host>::tonum_;
  for (int c = 0; c < 256; ++c) {
    int expected = -1;
    if (c >= '0' && c <= '9') expected = c - '0';
    if (c >= 'A' && c <= 'Z') expected = c - 'A' + 10;
    if (c >= 'a' && c <= 'z') expected = c - 'a' + 10;
    EXPECT_EQ(expected, tonum[c]) << c;
  }
}

TEST(LessNocaseEng, Ordering) {
  const wsi::less_nocase_eng less;
  EXPECT_FALSE(less("abc", "ABC"));
  EXPECT_FALSE(less("ABC", "abc"));
  EXPECT_TRUE(less("", "a"));
  EXPECT_TRUE(less("ab", "a_"));
  EXPECT_TRUE(less("\x80", "A"));
  // Compared as C strings: bytes after an embedded NUL do not count.
  const std::string embedded("ABC\0x", 5);
  EXPECT_FALSE(less("abc", embedded));
  EXPECT_FALSE(less(embedded, "abc"));
}

}  // namespace
