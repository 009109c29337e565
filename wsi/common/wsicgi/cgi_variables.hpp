// How CGI variables become a request: the names of the client's headers, the byte count of the
// posted data and the URL texts.
#ifndef WSI_COMMON_WSICGI_CGI_VARIABLES_HPP
#define WSI_COMMON_WSICGI_CGI_VARIABLES_HPP

#include <cstdint>
#include <string>

#include <wsi/interface.hpp>

namespace wsi {
namespace cgi {

// The source label of every message that the CGI family logs; log readers filter on it.
const char kLogSource[] = "wsi/common/wsicgi";

// The request header that the CGI variable `name` carries, named as the client most likely wrote
// it: "HTTP_X_REQUEST_ID" gives "X-Request-Id", "CONTENT_TYPE" "Content-Type", "CONTENT_LENGTH"
// "Content-Length" (names compare case-insensitively). The empty text when the variable is no
// header: any other name, "HTTP_" alone, HTTP_CONTENT_TYPE and HTTP_CONTENT_LENGTH (the web
// server states the body's type and length in CONTENT_TYPE and CONTENT_LENGTH; for a chunked body
// the client's own header is absent).
std::string headerNameOf(const std::string& name);

// Reads a CONTENT_LENGTH value: decimal digits only, at most 2^64 - 1; the empty text is 0.
// Returns false, leaving `length` 0, for anything else (a sign, a blank, a letter, an overflow).
bool parseContentLength(const std::string& text, std::uint64_t& length);

// The URL texts of a request whose CGI variables are `variables`, as the stream back end derives
// them from a request configuration with the lines HTTP_URL and QUERY_STRING:
// - `httpUrl`: REQUEST_URI when it is not empty (the request line's target as the client sent
//   it); otherwise SCRIPT_NAME followed by PATH_INFO, then '?' and QUERY_STRING when that is not
//   empty (web servers that send no REQUEST_URI);
// - `url`: `httpUrl` before its first '?';
// - `query`: QUERY_STRING when it is not empty (a web server's rewrite may have changed it),
//   otherwise `httpUrl` after its first '?'.
void urlTexts(const NameTable& variables, std::string& httpUrl, std::string& url,
              std::string& query);

}  // namespace cgi
}  // namespace wsi

#endif  // WSI_COMMON_WSICGI_CGI_VARIABLES_HPP
