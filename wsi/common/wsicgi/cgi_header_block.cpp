// The CGI header block of a response.
#include "wsi/common/wsicgi/cgi_header_block.hpp"

#include <cstring>
#include <string>

namespace wsi {
namespace cgi {

namespace {

void appendLine(std::string& out, const std::string& name, const std::string& value) {
  out += name;
  out += ": ";
  out += value;
  out += "\r\n";
}

}  // namespace

bool isHeaderName(const std::string& name) {
  static const char kSymbols[] = "!#$%&'*+-.^_`|~";
  if (name.empty()) return false;
  for (std::string::size_type i = 0; i < name.size(); ++i) {
    const char c = name[i];
    const bool alnum = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    if (!alnum && (c == '\0' || std::strchr(kSymbols, c) == nullptr)) return false;
  }
  return true;
}

bool holdsLineBreak(const std::string& text) {
  return text.find_first_of(std::string("\r\n\0", 3)) != std::string::npos;
}

bool isSendableStatus(Http::Status status) {
  return status >= 200 && status <= 999;
}

void appendHeaderBlock(std::string& out, const HeaderBlock& block) {
  const Http::Status status =
      isSendableStatus(block.status) ? block.status : Http::InternalServerError;
  out += "Status: ";
  out += std::to_string(static_cast<int>(status));
  out += ' ';
  out += Http::StatusDesc<wx::encoding::host>(status);
  out += "\r\nContent-Type: ";
  out += block.content_type;
  if (!block.content_encoding.empty()) {
    out += "; charset=";
    out += block.content_encoding;
  }
  out += "\r\n";
  if (block.content_length_known) {
    out += "Content-Length: ";
    out += std::to_string(block.content_length);
    out += "\r\n";
  }
  for (NameValueList::const_iterator it = block.headers->begin(); it != block.headers->end(); ++it)
    appendLine(out, it->first, it->second);
  out += "\r\n";
}

}  // namespace cgi
}  // namespace wsi
