#include <time.h>
#include <cstdio>
#include <cstring>

#include <wsi/cgi_handle.hpp>
#include <wsi/cookies.hpp>
#include "wsi/common/wsiform/header_params.hpp"

namespace wsi {

namespace {

// A token byte: visible ASCII other than the separators.
bool isTokenByte(unsigned char c) {
  return c > 0x20 && c < 0x7F && std::strchr("()<>@,;:\\\"/[]?={}", c) == 0;
}

// A byte that a cookie value may hold: visible ASCII other than '"', ',', ';' and '\\'.
bool isCookieByte(unsigned char c) {
  return c > 0x20 && c < 0x7F && c != '"' && c != ',' && c != ';' && c != '\\';
}

bool isToken(const std::string& text) {
  if (text.empty()) return false;
  for (std::string::size_type i = 0; i < text.size(); ++i) {
    if (!isTokenByte(static_cast<unsigned char>(text[i]))) return false;
  }
  return true;
}

// A cookie value: cookie bytes, or cookie bytes inside one pair of double quotes.
bool isCookieValue(const std::string& value) {
  std::string::size_type begin = 0;
  std::string::size_type end = value.size();
  if (end >= 2 && value[0] == '"' && value[end - 1] == '"') {
    ++begin;
    --end;
  }
  for (std::string::size_type i = begin; i < end; ++i) {
    if (!isCookieByte(static_cast<unsigned char>(value[i]))) return false;
  }
  return true;
}

bool isDomain(const std::string& domain) {
  if (domain.empty()) return false;
  for (std::string::size_type i = 0; i < domain.size(); ++i) {
    const char c = domain[i];
    const bool ok = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                    c == '-' || c == '.';
    if (!ok) return false;
  }
  return true;
}

// A path: any visible ASCII byte or blank except ';'.
bool isPath(const std::string& path) {
  for (std::string::size_type i = 0; i < path.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(path[i]);
    if (c < 0x20 || c >= 0x7F || c == ';') return false;
  }
  return true;
}

// `when` as an HTTP date, e.g. "Sun, 06 Nov 1994 08:49:37 GMT" (no locale involved).
std::string httpDate(std::time_t when) {
  static const char days[7][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static const char months[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  struct tm t;
  if (::gmtime_r(&when, &t) == 0) return std::string();
  char text[40];
  std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", days[t.tm_wday],
                t.tm_mday, months[t.tm_mon], t.tm_year + 1900, t.tm_hour, t.tm_min, t.tm_sec);
  return text;
}

}  // namespace

NameValuePairs parseCookies(const std::string& header) {
  NameValuePairs pairs;
  std::string::size_type pos = 0;
  while (pos <= header.size()) {
    std::string::size_type end = header.find(';', pos);
    if (end == std::string::npos) end = header.size();
    const void* found = std::memchr(header.data() + pos, '=', end - pos);
    if (found != 0) {
      const std::string::size_type eq = static_cast<const char*>(found) - header.data();
      std::string name = form::trimmed(header, pos, eq);
      std::string value = form::trimmed(header, eq + 1, end);
      if (value.size() >= 2 && value[0] == '"' && value[value.size() - 1] == '"')
        value = value.substr(1, value.size() - 2);
      if (!name.empty()) pairs.push_back(std::make_pair(name, value));
    }
    pos = end + 1;
  }
  return pairs;
}

NameValuePairs requestCookies(const Request& request) {
  const std::string* header = request.HttpHeaders("Cookie");
  return header != 0 ? parseCookies(*header) : NameValuePairs();
}

SetCookie::SetCookie(const std::string& name, const std::string& value)
    : name_(name),
      value_(value),
      expires_(0),
      max_age_(0),
      has_expires_(false),
      has_max_age_(false),
      secure_(false),
      http_only_(false),
      partitioned_(false),
      same_site_(same_site_unset) {}

SetCookie& SetCookie::expires(std::time_t when) {
  expires_ = when;
  has_expires_ = true;
  return *this;
}

SetCookie& SetCookie::maxAge(long long seconds) {
  max_age_ = seconds;
  has_max_age_ = true;
  return *this;
}

SetCookie& SetCookie::domain(const std::string& domain) {
  domain_ = domain;
  return *this;
}

SetCookie& SetCookie::path(const std::string& path) {
  path_ = path;
  return *this;
}

SetCookie& SetCookie::secure(bool on) {
  secure_ = on;
  return *this;
}

SetCookie& SetCookie::httpOnly(bool on) {
  http_only_ = on;
  return *this;
}

SetCookie& SetCookie::sameSite(SameSite mode) {
  same_site_ = mode;
  return *this;
}

SetCookie& SetCookie::partitioned(bool on) {
  partitioned_ = on;
  return *this;
}

bool SetCookie::build(std::string& value, std::string& error) const {
  const char* refusal = 0;
  if (!isToken(name_)) {
    refusal = "its name is empty or holds a byte that a header token may not hold";
  } else if (!isCookieValue(value_)) {
    refusal = "its value holds a control byte, a blank, '\"', ',', ';', '\\' or a non-ASCII byte";
  } else if (!domain_.empty() && !isDomain(domain_)) {
    refusal = "its Domain holds a byte other than letters, digits, '-' and '.'";
  } else if (!isPath(path_)) {
    refusal = "its Path holds a control byte, a non-ASCII byte or ';'";
  } else if ((same_site_ == same_site_none || partitioned_) && !secure_) {
    refusal = "SameSite=None and Partitioned need Secure";
  } else if (name_.compare(0, 9, "__Secure-") == 0 && !secure_) {
    refusal = "a \"__Secure-\" name needs Secure";
  } else if (name_.compare(0, 7, "__Host-") == 0 &&
             (!secure_ || path_ != "/" || !domain_.empty())) {
    refusal = "a \"__Host-\" name needs Secure, Path=/ and no Domain";
  } else if (has_expires_ && httpDate(expires_).empty()) {
    refusal = "its Expires time cannot be written as a date";
  }
  if (refusal != 0) {
    error = "the cookie '" + name_ + "' was not set: " + refusal;
    return false;
  }
  std::string out = name_ + "=" + value_;
  if (has_expires_) out += "; Expires=" + httpDate(expires_);
  if (has_max_age_) out += "; Max-Age=" + std::to_string(max_age_);
  if (!domain_.empty()) out += "; Domain=" + domain_;
  if (!path_.empty()) out += "; Path=" + path_;
  if (secure_) out += "; Secure";
  if (http_only_) out += "; HttpOnly";
  static const char* const kSameSite[] = {"", "; SameSite=Strict", "; SameSite=Lax",
                                          "; SameSite=None"};
  out += kSameSite[same_site_];
  if (partitioned_) out += "; Partitioned";
  value.swap(out);
  return true;
}

ResponseCookies::ResponseCookies(Response& response) : response_(response) {}

bool ResponseCookies::add(const SetCookie& cookie, std::string& error) {
  std::string value;
  if (!cookie.build(value, error)) return false;
  CgiResponse* cgi = dynamic_cast<CgiResponse*>(&response_);
  if (cgi != 0) {
    cgi->addHttpHeader("Set-Cookie", value);
    return true;
  }
  if (!folded_.empty()) folded_ += "\nSet-Cookie: ";
  folded_ += value;
  response_.setHttpHeader("Set-Cookie", folded_);
  return true;
}

}  // namespace wsi
