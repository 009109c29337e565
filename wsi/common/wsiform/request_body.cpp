#include "wsi/common/wsiform/request_body.hpp"

#include <istream>
#include <vector>

namespace wsi {
namespace form {

namespace {

const std::size_t kPiece = 64 * 1024;

// Parses a Content-Length value: decimal digits only. False for anything else or an overflow.
bool parseLength(const std::string& text, unsigned long long& length) {
  if (text.empty() || text.size() > 19) return false;
  length = 0;
  for (std::string::size_type i = 0; i < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    length = length * 10 + static_cast<unsigned>(text[i] - '0');
  }
  return true;
}

}  // namespace

FormStatus readBody(Request& request, BodySink& sink, std::size_t max_body, std::string& error) {
  unsigned long long announced = 0;
  const std::string* length_text = request.HttpHeaders("Content-Length");
  const bool known = length_text != 0 && !length_text->empty();
  if (known && !parseLength(*length_text, announced)) {
    error = "the request's Content-Length '" + *length_text + "' is not a decimal number";
    return form_malformed;
  }
  if (known && announced > max_body) {
    error = "the posted data (Content-Length " + *length_text + ") is larger than the limit of " +
            std::to_string(max_body) + " bytes";
    return form_too_large;
  }
  std::istream* in = request.beginRead();
  if (in == 0) {
    error = "the request's posted data cannot be read";
    return form_failed;
  }
  std::vector<char> buffer(kPiece);
  unsigned long long total = 0;
  for (;;) {
    std::size_t want = kPiece;
    if (known && announced - total < want) want = static_cast<std::size_t>(announced - total);
    if (known && want == 0) break;
    in->read(buffer.data(), static_cast<std::streamsize>(want));
    const std::size_t got = static_cast<std::size_t>(in->gcount());
    total += got;
    if (!known && total > max_body) {
      error = "the posted data is larger than the limit of " + std::to_string(max_body) + " bytes";
      return form_too_large;
    }
    if (got > 0 && !sink.take(buffer.data(), got)) return form_refused;
    if (got < want) break;
  }
  if (in->bad()) {
    error = "reading the posted data failed after " + std::to_string(total) + " bytes";
    return form_failed;
  }
  if (known && total < announced) {
    error = "the posted data ended after " + std::to_string(total) + " of the " +
            std::to_string(announced) + " bytes its Content-Length announced";
    return form_malformed;
  }
  return form_ok;
}

}  // namespace form
}  // namespace wsi
