// The HTTP status texts, method names and method lookup.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include <wsi/http.hpp>

namespace {

using namespace wsi::Http;
using wx::encoding::connector;
using wx::encoding::host;

const std::map<int, std::string>& statusTexts() {
  static const std::map<int, std::string> texts = {
      {-1, "Invalid Status"},
      {100, "Continue"},
      {101, "Switching Protocols"},
      {102, "Processing"},
      {200, "OK"},
      {201, "Created"},
      {202, "Accepted"},
      {203, "Non-Authoritative Information"},
      {204, "No Content"},
      {205, "Reset Content"},
      {206, "Partial Content"},
      {207, "Multi-status"},
      {300, "Multiple Choices"},
      {301, "Moved Permanently"},
      {302, "Moved Temporarily"},
      {303, "See Other"},
      {304, "Not Modified"},
      {305, "Use Proxy"},
      {307, "Temporary Redirect"},
      {400, "Bad Request"},
      {401, "Unauthorized"},
      {402, "Payment Required"},
      {403, "Forbidden"},
      {404, "Not Found"},
      {405, "Method Not Allowed"},
      {406, "Not Acceptable"},
      {407, "Proxy Authentication Required"},
      {408, "Request Time Out"},
      {409, "Conflict"},
      {410, "Gone"},
      {411, "Length Required"},
      {412, "Precondition Failed"},
      {413, "Request Entity Too Large"},
      {414, "Request URI Too Large"},
      {415, "Unsupported Media Type"},
      {416, "Requested Range Not Satisfiable"},
      {417, "Expectation Failed"},
      {422, "Unprocessable Entity"},
      {423, "Locked"},
      {424, "Failed Dependency"},
      {426, "Upgrade Required"},
      {500, "Internal Server Error"},
      {501, "Not Implemented"},
      {502, "Bad Gateway"},
      {503, "Service Unavailable"},
      {504, "Gateway Time Out"},
      {505, "HTTP Version Not Supported"},
      {506, "Variant Also Varies"},
      {507, "Insufficient Storage"},
      {510, "Not Extended"},
  };
  return texts;
}

TEST(StatusDesc, EveryCodeFromMinusTenToThousand) {
  for (int code = -10; code <= 1000; ++code) {
    const std::map<int, std::string>::const_iterator known = statusTexts().find(code);
    const std::string expected = known == statusTexts().end() ? "Unknown Status" : known->second;
    EXPECT_EQ(expected, StatusDesc<host>(static_cast<Status>(code))) << code;
    EXPECT_EQ(expected, StatusDesc<connector>(static_cast<Status>(code))) << code;
  }
  EXPECT_STREQ("Unknown Status", StatusDesc<host>(static_cast<Status>(-2147483647 - 1)));
}

TEST(MethodNameOf, Table) {
  const std::map<int, std::string> names = {
      {-3, "UNKNOWN"}, {-2, "UNKNOWN"}, {-1, "INVALID"},        {0, "GET"},   {1, "POST"},
      {2, "HEAD"},     {3, "PUT"},      {4, "DELETE"},          {5, "TRACE"}, {6, "CONNECT"},
      {7, "OPTIONS"},  {8, "UNKNOWN"},  {2147483647, "UNKNOWN"}};
  for (const auto& n : names) {
    EXPECT_EQ(n.second, MethodNameOf<host>(static_cast<MethodId>(n.first))) << n.first;
    EXPECT_EQ(n.second, MethodNameOf<connector>(static_cast<MethodId>(n.first))) << n.first;
  }
}

TEST(MethodIdOf, Table) {
  const std::map<std::string, int> ids = {
      {"GET", 0},     {"get", 0},     {"GeT", 0},     {"POST", 1},         {"post", 1},
      {"Head", 2},    {"put", 3},     {"DeLeTe", 4},  {"trace", 5},        {"CONNECT", 6},
      {"options", 7}, {"", -1},       {"GE", -1},     {"GETX", -1},        {"GETS", -1},
      {" GET", -1},   {"GET ", -1},   {"PATCH", -1},  {"P", -1},           {"POS", -1},
      {"PUTS", -1},   {"OPTION", -1}, {"HEAD\n", -1}, {"\xc7\xc5\xd4", -1}};
  for (const auto& m : ids) {
    EXPECT_EQ(m.second, MethodIdOf<host>(m.first.c_str())) << m.first;
    EXPECT_EQ(m.second, MethodIdOf<connector>(m.first.c_str())) << m.first;
  }
}

TEST(MethodIdOf, RoundTripsEveryName) {
  for (int id = 0; id <= 7; ++id) {
    const char* name = MethodNameOf<host>(static_cast<MethodId>(id));
    EXPECT_EQ(id, MethodIdOf<host>(name));
    EXPECT_EQ(id, MethodIdOf<connector>(name));
  }
}

}  // namespace
