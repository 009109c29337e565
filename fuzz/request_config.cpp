// Fuzz target: request configurations through a stream handle. The input is the whole
// configuration text; the posted data is a fixed text.
//
// The request is checked as every request is (fuzz_check.hpp), its method against its
// REQUEST_METHOD variable and its posted data against the text given. Then the target answers as a
// host that echoes what it got: every request header goes back through setHttpHeader, the query
// string as one more header, and the body lists the query arguments; the response text is
// checked as well.
#include <cstdint>
#include <iterator>
#include <sstream>
#include <string>

#include <wsi/ios_handle.hpp>

#include "fuzz_check.hpp"

namespace {

const char kPosted[] = "posted data";

void checkRequest(wsi::IosRequest& request, const std::istream& posted) {
  fuzz::checkRequest(request);
  // A REQUEST_METHOD line stores the canonical name of the method it names.
  if (const std::string* method = request.ServerVariables("REQUEST_METHOD"))
    FUZZ_CHECK(*method == wsi::Http::MethodNameOf<wx::encoding::host>(request.Method()));

  std::istream* in = request.beginRead();
  FUZZ_CHECK(in == &posted);
  const std::string data((std::istreambuf_iterator<char>(*in)), std::istreambuf_iterator<char>());
  FUZZ_CHECK(data == kPosted);
  FUZZ_CHECK(request.endRead());
  FUZZ_CHECK(!request.endRead());
  FUZZ_CHECK(request.beginRead() == nullptr);
}

// Echoes the request into the response; returns the body written and sets `plain` when no header
// name or value holds a line feed.
std::string echo(const wsi::Request& request, wsi::Response& response, bool& plain) {
  response.setHttpStatus(request.Method() == wsi::Http::InvalidMethod ? wsi::Http::BadRequest
                                                                      : wsi::Http::Ok);
  plain = true;
  for (auto it = request.HttpHeaders_begin(); it != request.HttpHeaders_end(); ++it) {
    response.setHttpHeader(it->first, it->second);
    plain = plain && !fuzz::hasLineFeed(it->first) && !fuzz::hasLineFeed(it->second);
  }
  response.setHttpHeader("X-Query", request.QueryString());
  plain = plain && !fuzz::hasLineFeed(request.QueryString());

  std::string body;
  for (auto it = request.QueryArgs_begin(); it != request.QueryArgs_end(); ++it)
    body += it->first + "=" + it->second + "\n";
  return body;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream config(std::string(reinterpret_cast<const char*>(data), size));
  std::istringstream posted(kPosted);
  std::ostringstream output;
  std::string body;
  bool plain = true;
  {
    wsi::IosHandle handle(config, posted, output);
    checkRequest(static_cast<wsi::IosRequest&>(handle.Request()), posted);
    body = echo(handle.Request(), handle.Response(), plain);
    std::ostream* out = handle.Response().beginWrite();
    FUZZ_CHECK(out == &output);
    *out << body;
    FUZZ_CHECK(handle.Response().endWrite());

    std::ostringstream dump;
    handle._dump(dump);
    FUZZ_CHECK(dump.str().compare(0, 5, "[IN]\n") == 0);
  }
  fuzz::checkResponseText(output.str(), body, plain);
  return 0;
}
