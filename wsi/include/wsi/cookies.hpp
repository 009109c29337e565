// Cookies: the Cookie request header read into name/value pairs, and Set-Cookie headers built
// and set on a response, several on one response.
#ifndef WSI_COOKIES_HPP
#define WSI_COOKIES_HPP

#include <ctime>
#include <string>

#include <wsi/export.h>
#include <wsi/form_types.hpp>
#include <wsi/interface.hpp>

namespace wsi {

// The pairs of a Cookie header value, in order, as browsers send them: pairs separated by ';',
// blanks and tabs around names and values dropped, one pair of double quotes around a value
// removed, values otherwise as sent (no decoding). Lenient: a piece without '=' or with an
// empty name is skipped without an error. A repeated name keeps every value.
WSI_API NameValuePairs parseCookies(const std::string& header);

// The cookies of the request's Cookie header (none when it has no such header).
WSI_API NameValuePairs requestCookies(const Request& request);

enum SameSite { same_site_unset, same_site_strict, same_site_lax, same_site_none };

// One Set-Cookie header value. The setters only record; build() checks everything and writes.
class WSI_API SetCookie {
 public:
  SetCookie(const std::string& name, const std::string& value);

  SetCookie& expires(std::time_t when);  // written as an HTTP date in GMT
  SetCookie& maxAge(long long seconds);  // 0 or less: the browser drops the cookie at once
  SetCookie& domain(const std::string& domain);
  SetCookie& path(const std::string& path);
  SetCookie& secure(bool on = true);
  SetCookie& httpOnly(bool on = true);
  SetCookie& sameSite(SameSite mode);
  SetCookie& partitioned(bool on = true);  // needs secure()

  // Writes the header value into `value`. Refuses, writing nothing and saying why in `error`, a
  // name that is not a token, a value with a byte outside the cookie's (control bytes, blanks,
  // '"' inside, ',', ';', '\\', bytes above 0x7E), a domain other than letters, digits, '-' and
  // '.', a path with a control byte or ';', SameSite=None or Partitioned without Secure, and a
  // "__Secure-" or "__Host-" name without what browsers require of it.
  bool build(std::string& value, std::string& error) const;

 private:
  std::string name_;
  std::string value_;
  std::string domain_;
  std::string path_;
  std::time_t expires_;
  long long max_age_;
  bool has_expires_;
  bool has_max_age_;
  bool secure_;
  bool http_only_;
  bool partitioned_;
  SameSite same_site_;
};

// Sets Set-Cookie headers on one response; several cookies reach the client as several
// Set-Cookie header lines on every back end. A CGI or FastCGI response (wsi::CgiResponse) gets
// one header per cookie. On the other back ends the response keeps one value per header name, so
// the cookies are folded into the one "Set-Cookie" value, joined by a line feed and
// "Set-Cookie: ": the stream and file back ends write header values byte for byte, so each
// cookie becomes its own header line, and the connector carries the value to the web server,
// which writes it the same way.
class WSI_API ResponseCookies {
 public:
  // `response` must outlive this object; nothing is set before add().
  explicit ResponseCookies(Response& response);
  // Builds `cookie` and sets it on the response. False, with `error`, when build() refuses it;
  // the response is then left as it was.
  bool add(const SetCookie& cookie, std::string& error);

 private:
  Response& response_;
  std::string folded_;
};

}  // namespace wsi

#endif  // WSI_COOKIES_HPP
