// Header values made of a leading word and ';'-separated parameters, as Content-Type and
// Content-Disposition carry them.
#ifndef WSI_COMMON_WSIFORM_HEADER_PARAMS_HPP
#define WSI_COMMON_WSIFORM_HEADER_PARAMS_HPP

#include <string>

#include <wsi/form_types.hpp>

namespace wsi {
namespace form {

// Splits `value` into its leading word (the media type or disposition type, blanks and tabs
// trimmed, letters in lower case) and its parameters, in order: each name trimmed and in lower
// case, each value trimmed, a quoted value without its quotes and with "\"" and "\\" unescaped
// (a backslash before any other byte stays, as browsers send file names with backslashes). A
// parameter without '=' is kept with an empty value. One pass over `value`: linear whatever it
// holds. The entries of `params` are reused (so that parsing header after header allocates
// little). False when a quoted value is not closed.
bool splitParams(const std::string& value, std::string& word, NameValuePairs& params);

// Whether `c` is a blank or a tab, the white space of header values.
inline bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

// Sets `out` to `text`[begin, end) without blanks and tabs at either end (reusing its storage).
void assignTrimmed(std::string& out, const std::string& text, std::string::size_type begin,
                   std::string::size_type end);

// Removes blanks and tabs from both ends of `text`.
void trimInPlace(std::string& text);

// `text`[begin, end) without blanks and tabs at either end.
std::string trimmed(const std::string& text, std::string::size_type begin,
                    std::string::size_type end);

// Whether the media type of `content_type` (before any ';', blanks and tabs around it ignored)
// is `type`, compared without regard to case.
bool hasMediaType(const std::string& content_type, const char* type);

// Whether `a` and `b` are equal when ASCII letters are compared without regard to case.
bool equalNoCase(const std::string& a, const char* b);

}  // namespace form
}  // namespace wsi

#endif  // WSI_COMMON_WSIFORM_HEADER_PARAMS_HPP
