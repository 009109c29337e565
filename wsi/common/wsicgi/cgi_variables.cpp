// How CGI variables become a request.
#include "wsi/common/wsicgi/cgi_variables.hpp"

#include <wx/char_casing.hpp>
#include <wx/char_to_numeric.hpp>
#include <wx/nv_pair.hpp>

namespace wsi {
namespace cgi {

namespace {

typedef wx::char_casing<char, wx::language::english> Casing;

bool nameIs(const std::string& name, const char* literal) {
  return Casing::nocase_compare(name.c_str(), literal) == 0;
}

// The value of the variable `name`, or the empty text when it is absent.
const std::string& valueOf(const NameTable& variables, const char* name) {
  static const std::string kNone;
  const NameTable::const_iterator it = variables.find(name);
  return it == variables.end() ? kNone : it->second;
}

char lowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::string headerNameOf(const std::string& name) {
  static const char kPrefix[] = "HTTP_";
  static const unsigned long kPrefixLen = sizeof kPrefix - 1;
  if (nameIs(name, "CONTENT_TYPE")) return "Content-Type";
  if (nameIs(name, "CONTENT_LENGTH")) return "Content-Length";
  if (name.size() <= kPrefixLen || Casing::nocase_compare(name.c_str(), kPrefix, kPrefixLen) != 0)
    return std::string();
  // Web servers upper-case the name and turn '-' into '_'; the usual spelling capitalises each
  // word.
  std::string header(name, kPrefixLen);
  bool word_start = true;
  for (std::string::size_type i = 0; i < header.size(); ++i) {
    char& c = header[i];
    if (c == '_') c = '-';
    c = word_start ? Casing::ascii_toupper_[static_cast<unsigned char>(c)] : lowerCase(c);
    word_start = c == '-';
  }
  // The body's type and length are the web server's to state (CONTENT_TYPE, CONTENT_LENGTH),
  // whatever spelling of them a client header came in.
  if (nameIs(header, "Content-Type") || nameIs(header, "Content-Length")) return std::string();
  return header;
}

bool parseContentLength(const std::string& text, std::uint64_t& length) {
  static const std::uint64_t kMax = ~static_cast<std::uint64_t>(0);
  const signed char* const tonum = wx::basic_char_to_numeric<char, wx::encoding::host>::tonum_;
  std::uint64_t n = 0;
  length = 0;
  for (std::string::size_type i = 0; i < text.size(); ++i) {
    const signed char digit = tonum[static_cast<unsigned char>(text[i])];
    if (digit < 0 || digit > 9) return false;
    const std::uint64_t d = static_cast<std::uint64_t>(digit);
    if (n > (kMax - d) / 10) return false;
    n = n * 10 + d;
  }
  length = n;
  return true;
}

void urlTexts(const NameTable& variables, std::string& httpUrl, std::string& url,
              std::string& query) {
  const std::string& query_string = valueOf(variables, "QUERY_STRING");
  httpUrl = valueOf(variables, "REQUEST_URI");
  if (httpUrl.empty()) {
    httpUrl = valueOf(variables, "SCRIPT_NAME") + valueOf(variables, "PATH_INFO");
    if (!query_string.empty()) httpUrl += '?' + query_string;
  }
  const wx::url_query_pair parts(httpUrl);
  url = parts.first;
  query = query_string.empty() ? parts.second : query_string;
}

}  // namespace cgi
}  // namespace wsi
