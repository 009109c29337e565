// Fuzz target: the round trip of the connector response's header block. A response is written
// through a real connector, and the web server's side reads it back with the peer's own reader
// (tools/peer_records.hpp): status, content type, every header and the body must come back.
//
// The input is a list of fields (see fields.hpp, whose runs build texts of any length up to the
// target's limit of 68 KiB, past both the 2-byte and the 16-bit length forms): status (signed
// decimal), content type, content encoding, content length (empty: not set; otherwise unsigned
// decimal), body, then header names and values in pairs. Headers are stored with _setHttpHeader,
// which applies no rules, so that any name reaches the block, Content-Type and Content-Length
// included.
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <wsi/qco_handle.hpp>
#include "connector_pair.hpp"
#include "fields.hpp"
#include "fuzz_check.hpp"
#include "peer_records.hpp"

namespace {

typedef std::vector<std::pair<std::string, std::string>> Headers;

const int kTimeoutMs = 50;
const std::size_t kMaxBytes = 0x11000;

// The headers that a response stores for `fields`, from index 5 on, taken in pairs: a name that
// equals an earlier one as the tables compare them (ASCII case folded, up to a NUL byte) keeps
// the earlier spelling and place and takes the new value.
Headers expectedHeaders(const std::vector<std::string>& fields) {
  Headers headers;
  std::map<std::string, std::size_t> place;
  for (std::size_t i = 5; i < fields.size(); i += 2) {
    const std::string& name = fields[i];
    std::string key(name.c_str());
    for (char& c : key) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    const auto found = place.insert(std::make_pair(key, headers.size()));
    if (found.second) headers.emplace_back(name, std::string());
    headers[found.first->second].second = fuzz::fieldAt(fields, i + 1);
  }
  return headers;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> fields = fuzz::splitFields(data, size, kMaxBytes);
  const std::string& status_text = fuzz::fieldAt(fields, 0);
  const std::string& type = fuzz::fieldAt(fields, 1);
  const std::string& encoding = fuzz::fieldAt(fields, 2);
  const std::string& length_text = fuzz::fieldAt(fields, 3);
  const std::string& body = fuzz::fieldAt(fields, 4);
  const std::int32_t status =
      static_cast<std::int32_t>(std::strtoll(status_text.c_str(), nullptr, 10));
  const unsigned long length = std::strtoul(length_text.c_str(), nullptr, 10);

  fuzz::ConnectorPair pair(fuzz::frames("\x80", 1, true), kTimeoutMs);
  {
    wsi::QcoHandle handle(pair.host());
    FUZZ_CHECK(handle.Request().beginRead() != nullptr);
    wsi::Response& response = handle.Response();
    response.setHttpStatus(static_cast<wsi::Http::Status>(status));
    response.setContentType(type);
    response.setContentEncoding(encoding);
    if (!length_text.empty()) response.setContentLength(length);
    for (std::size_t i = 5; i < fields.size(); i += 2)
      response._setHttpHeader(fields[i], fuzz::fieldAt(fields, i + 1));
    std::ostream* out = response.beginWrite();
    FUZZ_CHECK(out != nullptr);
    out->write(body.data(), static_cast<std::streamsize>(body.size()));
    FUZZ_CHECK(response.endWrite());
  }
  const std::vector<fuzz::ResponseMessage> responses = pair.finish();
  FUZZ_CHECK(responses.size() == 1 && responses[0].complete);

  std::istringstream in(responses[0].payload);
  peer::ResponseHead head;
  std::string error;
  FUZZ_CHECK(peer::readResponseHead(in, head, error));
  // The status goes out as 16 bits.
  FUZZ_CHECK(head.status == static_cast<std::int16_t>(status));
  FUZZ_CHECK(head.has_content_type);
  std::string expected_type = type.empty() ? "application/octet-stream" : type;
  if (!encoding.empty()) expected_type += "; charset=" + encoding;
  FUZZ_CHECK(head.content_type == expected_type);
  Headers expected;
  if (!length_text.empty()) expected.emplace_back("Content-Length", std::to_string(length));
  const Headers stored = expectedHeaders(fields);
  expected.insert(expected.end(), stored.begin(), stored.end());
  FUZZ_CHECK(head.headers == expected);
  const std::string received(std::istreambuf_iterator<char>(in), {});
  FUZZ_CHECK(received == body);
  return 0;
}
