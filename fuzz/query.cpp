// Fuzz target: query strings, and the percent-decoders under them. The input is the query text.
//
// Checked: both query parsers (the stream back end's and the connector's) store the same
// arguments in the same order, within the bounds every parse keeps; without escapes every stored
// name and value stands in the query as it is; and the decoders agree with each other, never
// lengthen a text, and give back any text from its escaped form.
#include <algorithm>
#include <cstdint>
#include <string>

#include <wsi/interface.hpp>
#include <wx/url_decoder.hpp>
#include <wx/url_parser.hpp>
#include "fuzz_check.hpp"

namespace {

using wx::encoding::connector;
using wx::encoding::host;

template <bool Plus, wx::encoding::Encoding E>
std::string decoded(const std::string& text, const std::string& prefix = std::string()) {
  std::string out(prefix);
  wx::basic_url_decoder<Plus, E>()(out, text.data(), text.size());
  return out;
}

// `text` with every byte written as a '%' escape, the hexadecimal digits in upper or lower case
// by turns, except letters and digits, which stay as they are.
std::string escapedAll(const std::string& text) {
  static const char upper[] = "0123456789ABCDEF";
  static const char lower[] = "0123456789abcdef";
  std::string out;
  for (std::string::size_type i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) {
      out += static_cast<char>(c);
      continue;
    }
    const char* digits = i % 2 ? lower : upper;
    out += '%';
    out += digits[c >> 4];
    out += digits[c & 0xF];
  }
  return out;
}

void checkDecoders(const std::string& text) {
  const std::string plus = decoded<true, host>(text);
  const std::string plain = decoded<false, host>(text);
  FUZZ_CHECK(plus.size() <= text.size());
  FUZZ_CHECK(plain.size() <= text.size());
  FUZZ_CHECK(decoded<true, connector>(text) == plus);
  FUZZ_CHECK(decoded<false, connector>(text) == plain);
  FUZZ_CHECK(decoded<true, host>(text, "prefix") == "prefix" + plus);

  // '+' is a blank to the form decoder only; no escape begins or ends with a '+'.
  std::string blanks(text);
  std::replace(blanks.begin(), blanks.end(), '+', ' ');
  FUZZ_CHECK(decoded<false, host>(blanks) == plus);
  if (text.find('%') == std::string::npos) FUZZ_CHECK(plain == text);

  const std::string escaped = escapedAll(text);
  FUZZ_CHECK(decoded<true, host>(escaped) == text);
  FUZZ_CHECK(decoded<false, connector>(escaped) == text);
}

void checkParsers(const std::string& query) {
  wsi::OrderedNameTable host_args;
  wsi::OrderedNameTable connector_args;
  wx::query_parser<host>::type()(host_args, query);
  wx::query_parser<connector>::type()(connector_args, query);
  fuzz::checkQueryArgs(host_args.begin(), host_args.end(), query);
  FUZZ_CHECK(host_args.size() == connector_args.size());
  FUZZ_CHECK(std::equal(host_args.begin(), host_args.end(), connector_args.begin()));

  if (query.find_first_of("%+") != std::string::npos) return;
  for (wsi::OrderedNameTable::const_iterator it = host_args.begin(); it != host_args.end(); ++it) {
    FUZZ_CHECK(query.find(it->first) != std::string::npos);
    FUZZ_CHECK(query.find(it->second) != std::string::npos);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string query(reinterpret_cast<const char*>(data), size);
  checkParsers(query);
  checkDecoders(query);
  return 0;
}
