// The CGI header block of a response and the rules that keep every header on a line of its own.
#ifndef WSI_COMMON_WSICGI_CGI_HEADER_BLOCK_HPP
#define WSI_COMMON_WSICGI_CGI_HEADER_BLOCK_HPP

#include <string>

#include <wsi/cgi_handle.hpp>
#include <wsi/http.hpp>

namespace wsi {
namespace cgi {

// Whether `name` can be written as a header name: a non-empty HTTP token (letters, digits and
// !#$%&'*+-.^_`|~).
bool isHeaderName(const std::string& name);

// Whether `text` holds CR, LF or NUL, any of which would end a header line early.
bool holdsLineBreak(const std::string& text);

// Whether `status` is sent as it is: a three-digit status from 200 on. An informational status
// cannot end a response, and the rest cannot be written as a status at all.
bool isSendableStatus(Http::Status status);

// The settings that the header block states.
struct HeaderBlock {
  Http::Status status;           // sent as 500 when not sendable
  std::string content_type;      // always written
  std::string content_encoding;  // "; charset=" and this, when not empty
  bool content_length_known;     // whether "Content-Length" is written
  unsigned long content_length;
  const NameValueList* headers;  // the other headers, already checked, in order
};

// Appends the header block of `block` to `out`: "Status: <code> <reason>", "Content-Type",
// "Content-Length" when known, the other headers, an empty line; every line ends with CR LF.
void appendHeaderBlock(std::string& out, const HeaderBlock& block);

}  // namespace cgi
}  // namespace wsi

#endif  // WSI_COMMON_WSICGI_CGI_HEADER_BLOCK_HPP
