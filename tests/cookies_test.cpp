// The Cookie header read both ways: parsed from requests, built for Set-Cookie, and several
// cookies on one response as the client receives them (on a CGI response: form_page_test).
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/cookies.hpp>
#include "data_table.hpp"
#include "ios_test_util.hpp"

namespace {

TEST(ParseCookies, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("cookies.tsv")) {
    std::vector<std::string> got;
    for (const auto& pair : wsi::parseCookies(row[0])) {
      got.push_back(pair.first);
      got.push_back(pair.second);
    }
    EXPECT_EQ(got, std::vector<std::string>(row.fields.begin() + 1, row.fields.end()))
        << "line " << row.line;
  }
}

// Applies the table's attribute list ("secure,path=/,maxage=10,...") to `cookie`.
void applyAttributes(wsi::SetCookie& cookie, const std::string& list) {
  std::istringstream in(list);
  std::string item;
  while (std::getline(in, item, ',')) {
    const std::string::size_type eq = item.find('=');
    const std::string key = item.substr(0, eq);
    const std::string value = eq == std::string::npos ? std::string() : item.substr(eq + 1);
    if (key == "secure") cookie.secure();
    if (key == "httponly") cookie.httpOnly();
    if (key == "partitioned") cookie.partitioned();
    if (key == "path") cookie.path(value);
    if (key == "domain") cookie.domain(value);
    if (key == "maxage") cookie.maxAge(std::stoll(value));
    if (key == "expires") cookie.expires(static_cast<std::time_t>(std::stoll(value)));
    if (key == "samesite")
      cookie.sameSite(value == "strict" ? wsi::same_site_strict
                      : value == "lax"  ? wsi::same_site_lax
                                        : wsi::same_site_none);
  }
}

TEST(SetCookie, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("set_cookie.tsv")) {
    wsi::SetCookie cookie(row[0], row[1]);
    applyAttributes(cookie, row[2]);
    std::string value = "unchanged";
    std::string error;
    const bool ok = cookie.build(value, error);
    if (row[3][0] == '!') {
      EXPECT_FALSE(ok) << "line " << row.line;
      EXPECT_EQ(error, "the cookie '" + row[0] + "' was not set: " + row[3].substr(1))
          << "line " << row.line;
      EXPECT_EQ(value, "unchanged") << "line " << row.line;
    } else {
      EXPECT_TRUE(ok) << "line " << row.line << ": " << error;
      EXPECT_EQ(value, row[3]) << "line " << row.line;
      // What was built reads back as the one pair it sets.
      const wsi::NameValuePairs back = wsi::parseCookies(value.substr(0, value.find(';')));
      ASSERT_EQ(back.size(), 1u) << "line " << row.line;
      EXPECT_EQ(back[0].first, row[0]) << "line " << row.line;
    }
  }
}

// The stream back end writes the folded Set-Cookie value byte for byte: one line per cookie; a
// refused cookie leaves the response as it was.
TEST(ResponseCookies, SeveralCookiesBecomeSeveralLinesOnTheStreamBackEnd) {
  wsi_test::Exchange x("REQUEST_METHOD=GET\nheader.Cookie=a=1; b=x y\n");
  const wsi::NameValuePairs sent = wsi::requestCookies(x.handle.Request());
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(sent[1].second, "x y");
  wsi::ResponseCookies cookies(x.handle.Response());
  std::string error;
  EXPECT_TRUE(cookies.add(wsi::SetCookie("a", "2").path("/"), error));
  EXPECT_FALSE(cookies.add(wsi::SetCookie("bad", "x\r\nLocation: /evil"), error));
  EXPECT_TRUE(cookies.add(wsi::SetCookie("c", "3").httpOnly(), error));
  x.handle.Response().setHttpStatus(wsi::Http::Ok);
  EXPECT_TRUE(x.handle.Response().endWrite());
  const std::string output = x.output.str();
  EXPECT_NE(output.find("\nSet-Cookie: a=2; Path=/\nSet-Cookie: c=3; HttpOnly\n\n"),
            std::string::npos)
      << output;
  EXPECT_EQ(output.find("evil"), std::string::npos);
}

}  // namespace
