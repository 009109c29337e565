// Fuzz target: the response header rules, through setHttpHeader. The input is a list of fields
// (see fields.hpp), taken in pairs: header name, header value.
//
// Checked, header by header, against responses that record what the rules call: both
// instantiations of the rules make the same calls; a name that is Content-Length in any case
// gives the length of an all-digit value (wrapping modulo 2 to the 64th) and nothing at all for
// any other value; a name that is Content-Type in any case gives a type and an encoding, whose
// exact texts are known when the value names no charset; every other header is stored as it is.
// Then the same headers go through the stream back end's response, and its text is checked.
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include <wsi/ios_handle.hpp>
#include "fields.hpp"
#include "fuzz_check.hpp"

namespace {

using wx::encoding::connector;
using wx::encoding::host;

// One call that the header rules made on a response: what was called and with which texts.
struct Call {
  enum Kind { kType, kEncoding, kLength, kHeader } kind;
  std::string first;
  std::string second;
  bool operator==(const Call& other) const {
    return kind == other.kind && first == other.first && second == other.second;
  }
};

// A response that records the calls the header rules of encoding E make on it.
template <wx::encoding::Encoding E>
class RecordingResponse : public wsi::Response {
 public:
  std::vector<Call> calls;

  void setHttpStatus(wsi::Http::Status) override {}
  void setContentType(const std::string& type) override {
    calls.push_back({Call::kType, type, ""});
  }
  void setContentEncoding(const std::string& encoding) override {
    calls.push_back({Call::kEncoding, encoding, ""});
  }
  void setContentLength(unsigned long length) override {
    calls.push_back({Call::kLength, std::to_string(length), ""});
  }
  void setHttpHeader(const std::string& name, const std::string& value) override {
    _setHttpHeaderHelper<E>(name, value);
  }
  std::ostream* beginWrite() override { return nullptr; }
  bool endWrite() override { return false; }
  void flush() override {}
  void close() override {}
  void _setHttpHeader(const std::string& name, const std::string& value) override {
    calls.push_back({Call::kHeader, name, value});
  }
  void _dump(std::ostream&) const override {}
};

// Whether `name`, up to its first NUL byte, is `lower` (a lower-case header name) with any of its
// letters in upper case.
bool isName(const std::string& whole, const std::string& lower) {
  const std::string name = whole.substr(0, whole.find('\0'));
  if (name.size() != lower.size()) return false;
  for (std::string::size_type i = 0; i < name.size(); ++i) {
    const char c =
        name[i] >= 'A' && name[i] <= 'Z' ? static_cast<char>(name[i] - 'A' + 'a') : name[i];
    if (c != lower[i]) return false;
  }
  return true;
}

// The content length that an all-digit `value` gives, as the text of the number; false for any
// other value.
bool lengthOf(const std::string& value, std::string& length) {
  std::uint64_t n = 0;
  for (char c : value) {
    if (c < '0' || c > '9') return false;
    n = n * 10 + static_cast<std::uint64_t>(c - '0');
  }
  length = std::to_string(n);
  return true;
}

// Whether `text` holds "charset" in any case.
bool namesCharset(const std::string& text) {
  static const std::string kCharset = "charset";
  for (std::string::size_type i = 0; i + kCharset.size() <= text.size(); ++i) {
    std::string::size_type n = 0;
    while (n < kCharset.size() && (text[i + n] | 0x20) == kCharset[n])
      ++n;
    if (n == kCharset.size()) return true;
  }
  return false;
}

void checkContentType(const std::string& value, const std::vector<Call>& calls) {
  FUZZ_CHECK(calls.size() == 2);
  FUZZ_CHECK(calls[0].kind == Call::kType && calls[1].kind == Call::kEncoding);
  const std::string& type = calls[0].first;
  const std::string& encoding = calls[1].first;
  const std::string::size_type semicolon = value.find(';');
  if (semicolon == std::string::npos) {
    FUZZ_CHECK(type == value);
    FUZZ_CHECK(encoding.empty());
    return;
  }
  // The parameters are read as a zero-terminated text.
  std::string::size_type end = value.find('\0', semicolon);
  if (end == std::string::npos) end = value.size();
  FUZZ_CHECK(type.compare(0, semicolon, value, 0, semicolon) == 0);
  FUZZ_CHECK(type.size() + encoding.size() <= end);
  FUZZ_CHECK(encoding.find(';') == std::string::npos);
  if (namesCharset(value.substr(semicolon, end - semicolon))) return;
  // Without a charset every parameter stays in the type as written; only a ';' at the very end
  // goes.
  if (value[end - 1] == ';') --end;
  FUZZ_CHECK(type == value.substr(0, end));
  FUZZ_CHECK(encoding.empty());
}

void checkRules(const std::string& name, const std::string& value) {
  RecordingResponse<host> host_response;
  RecordingResponse<connector> connector_response;
  host_response.setHttpHeader(name, value);
  connector_response.setHttpHeader(name, value);
  const std::vector<Call>& calls = host_response.calls;
  FUZZ_CHECK(calls == connector_response.calls);

  std::string length;
  if (isName(name, "content-type")) {
    checkContentType(value, calls);
  } else if (isName(name, "content-length")) {
    if (lengthOf(value, length))
      FUZZ_CHECK(calls.size() == 1 && calls[0].kind == Call::kLength && calls[0].first == length);
    else
      FUZZ_CHECK(calls.empty());
  } else {
    FUZZ_CHECK(calls.size() == 1 && calls[0].kind == Call::kHeader);
    FUZZ_CHECK(calls[0].first == name && calls[0].second == value);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> fields = fuzz::splitFields(data, size, 1 << 14);
  std::ostringstream output;
  bool plain = true;
  const std::string body = "body";
  {
    wsi::IosResponse response(output);
    for (std::size_t i = 0; i < fields.size(); i += 2) {
      const std::string& name = fields[i];
      const std::string& value = fuzz::fieldAt(fields, i + 1);
      checkRules(name, value);
      response.setHttpHeader(name, value);
      plain = plain && !fuzz::hasLineFeed(name) && !fuzz::hasLineFeed(value);
    }
    std::ostream* out = response.beginWrite();
    FUZZ_CHECK(out == &output);
    *out << body;
    FUZZ_CHECK(response.endWrite());
  }
  fuzz::checkResponseText(output.str(), body, plain);
  return 0;
}
