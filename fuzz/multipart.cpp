// Fuzz target: multipart bodies. The input is the body, read with the boundary "xB"; it is also
// read as a Content-Type value and as a part's header block.
//
// Checked: the body fed whole, one byte at a time and in pieces cut where the input's own bytes
// say gives the same parts (headers, data) and the same status and error; parts begin and end in
// pairs; the part count limit holds; a boundary taken from a Content-Type is a valid one.
#include <cstdint>
#include <string>
#include <vector>

#include <wsi/multipart.hpp>
#include "fuzz_check.hpp"
#include "pieces.hpp"

namespace {

const char kBoundary[] = "xB";

// Records what the parser hands over, as one text per event.
struct Recorder : wsi::MultipartHandler {
  std::vector<std::string> events;
  int open = 0;
  bool partBegin(const wsi::MultipartPart& part) override {
    FUZZ_CHECK(open == 0);
    ++open;
    std::string text = "begin " + part.name + '\0' + part.filename + '\0' + part.content_type;
    for (const auto& header : part.headers)
      text += '\0' + header.first + '\0' + header.second;
    events.push_back(text);
    events.push_back(std::string());
    return true;
  }
  bool partData(const char* data, std::size_t size) override {
    FUZZ_CHECK(open == 1 && size > 0);
    events.back().append(data, size);
    return true;
  }
  bool partEnd() override {
    FUZZ_CHECK(open == 1);
    --open;
    events.push_back("end");
    return true;
  }
};

struct Outcome {
  std::vector<std::string> events;
  wsi::FormStatus status;
  std::string error;
  std::size_t parts;
  bool operator==(const Outcome& o) const {
    return events == o.events && status == o.status && error == o.error && parts == o.parts;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  wsi::MultipartLimits limits;
  limits.max_parts = 8;
  limits.max_header_bytes = 256;
  limits.max_body = 3000;
  const Outcome whole = fuzz::sameInAnyPieces<Outcome>(body, [&](const fuzz::PieceSize& size_at) {
    Recorder recorder;
    wsi::MultipartParser parser(kBoundary, recorder, limits);
    fuzz::feedInPieces(parser, body, size_at);
    parser.finish();
    if (parser.status() == wsi::form_ok) FUZZ_CHECK(recorder.open == 0);
    return Outcome{recorder.events, parser.status(), parser.error(), parser.partCount()};
  });
  FUZZ_CHECK(whole.parts <= limits.max_parts);
  FUZZ_CHECK((whole.status == wsi::form_ok) == whole.error.empty());

  std::string boundary;
  std::string error;
  if (wsi::multipartBoundary(body, boundary, error)) {
    FUZZ_CHECK(!boundary.empty() && boundary.size() <= 70);
    FUZZ_CHECK(boundary[boundary.size() - 1] != ' ');
  } else {
    FUZZ_CHECK(!error.empty());
  }
  wsi::MultipartPart part;
  if (wsi::parsePartHeaders(body, part, error)) {
    for (const auto& header : part.headers)
      FUZZ_CHECK(header.first.find("\r\n") == std::string::npos);
  }
  return 0;
}
