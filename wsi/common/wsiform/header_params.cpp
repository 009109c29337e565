#include "wsi/common/wsiform/header_params.hpp"

#include <cstring>

namespace wsi {
namespace form {

namespace {

// `c` with an ASCII capital letter made small; no locale involved.
char asciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

void lowerInPlace(std::string& text) {
  for (std::string::size_type i = 0; i < text.size(); ++i)
    text[i] = asciiLower(text[i]);
}

std::string lowered(std::string text) {
  lowerInPlace(text);
  return text;
}

// Reads the quoted text that starts after the '"' at `pos` into `out`; leaves `pos` after the
// closing quote. False when there is none.
bool readQuoted(const std::string& value, std::string::size_type& pos, std::string& out) {
  for (++pos; pos < value.size(); ++pos) {
    const char c = value[pos];
    if (c == '"') {
      ++pos;
      return true;
    }
    if (c == '\\' && pos + 1 < value.size() && (value[pos + 1] == '"' || value[pos + 1] == '\\'))
      ++pos;
    out += value[pos];
  }
  return false;
}

}  // namespace

void assignTrimmed(std::string& out, const std::string& text, std::string::size_type begin,
                   std::string::size_type end) {
  while (begin < end && isBlank(text[begin]))
    ++begin;
  while (end > begin && isBlank(text[end - 1]))
    --end;
  out.assign(text, begin, end - begin);
}

void trimInPlace(std::string& text) {
  std::string::size_type end = text.size();
  while (end > 0 && isBlank(text[end - 1]))
    --end;
  std::string::size_type begin = 0;
  while (begin < end && isBlank(text[begin]))
    ++begin;
  text.erase(end);
  text.erase(0, begin);
}

std::string trimmed(const std::string& text, std::string::size_type begin,
                    std::string::size_type end) {
  std::string out;
  assignTrimmed(out, text, begin, end);
  return out;
}

bool equalNoCase(const std::string& a, const char* b) {
  const std::size_t length = std::strlen(b);
  if (a.size() != length) return false;
  for (std::size_t i = 0; i < length; ++i) {
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  }
  return true;
}

bool hasMediaType(const std::string& content_type, const char* type) {
  std::string::size_type end = content_type.find(';');
  if (end == std::string::npos) end = content_type.size();
  return equalNoCase(trimmed(content_type, 0, end), type);
}

bool splitParams(const std::string& value, std::string& word, NameValuePairs& params) {
  std::string::size_type pos = value.find(';');
  if (pos == std::string::npos) pos = value.size();
  word = lowered(trimmed(value, 0, pos));
  std::size_t count = 0;  // entries of params in use; the others are reused, then dropped
  while (pos < value.size()) {
    ++pos;  // past the ';'
    std::string::size_type name_end = value.find_first_of("=;", pos);
    const bool bare = name_end == std::string::npos || value[name_end] == ';';
    if (name_end == std::string::npos) name_end = value.size();
    if (bare && trimmed(value, pos, name_end).empty()) {
      pos = name_end;
      continue;
    }
    if (count == params.size()) params.resize(count + 1);
    std::pair<std::string, std::string>& param = params[count++];
    assignTrimmed(param.first, value, pos, name_end);
    lowerInPlace(param.first);
    param.second.clear();
    pos = name_end;
    if (bare) continue;
    ++pos;  // past the '='
    while (pos < value.size() && isBlank(value[pos]))
      ++pos;
    if (pos < value.size() && value[pos] == '"') {
      if (!readQuoted(value, pos, param.second)) return false;
      pos = value.find(';', pos);  // anything between the closing quote and ';' is dropped
      if (pos == std::string::npos) pos = value.size();
    } else {
      std::string::size_type end = value.find(';', pos);
      if (end == std::string::npos) end = value.size();
      assignTrimmed(param.second, value, pos, end);
      pos = end;
    }
  }
  params.resize(count);
  return true;
}

}  // namespace form
}  // namespace wsi
