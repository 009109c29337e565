// Fuzz target: request configurations through a stream handle. The input is the whole
// configuration text; the posted data is a fixed text.
//
// The request is checked as every request is (fuzz_check.hpp), its method against its
// REQUEST_METHOD variable and its posted data against the text given. Then the target answers as a
// host that echoes what it got: every request header goes back through setHttpHeader, the query
// string as one more header, and the body lists the query arguments; the response text is
// checked as well.
//
// The same request then travels as the web server sends it over the connector: its record block
// (the peer tool's encoder) and the posted data, read by a connector handle, must give the same
// method, URL texts, query arguments, headers and server variables. Two variables may differ: the
// connector's content-type record sets "HEADER_Content-Type" and "HTTP_CONTENT_TYPE" from the
// Content-Type header, and a Content-Type header spelled otherwise comes back spelled so.
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <sstream>
#include <string>

#include <wsi/ios_handle.hpp>
#include <wsi/qco_handle.hpp>
#include <wx/char_casing.hpp>
#include "connector_pair.hpp"
#include "fuzz_check.hpp"
#include "peer_records.hpp"

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

// Whether `name` is, as the tables compare names, a server variable that the connector's
// content-type record sets.
bool setByContentType(const std::string& name) {
  typedef wx::char_casing<char, wx::language::english> Casing;
  return Casing::nocase_compare(name.c_str(), "HEADER_Content-Type") == 0 ||
         Casing::nocase_compare(name.c_str(), "HTTP_CONTENT_TYPE") == 0;
}

// Sends `request` over the connector as the web server does and checks that the connector handle
// reads the same request.
void checkOverConnector(const wsi::Request& request) {
  std::string block;
  std::string error;
  if (!peer::encodeRequestBlock(request, block, error)) return;  // a text longer than a record
  fuzz::ConnectorPair pair(fuzz::frames(block + kPosted, 4096, true), 50);
  wsi::QcoHandle handle(pair.host());
  const wsi::Request& read = handle.Request();
  FUZZ_CHECK(read.Method() == request.Method());
  FUZZ_CHECK(read.HttpURL() == request.HttpURL());
  FUZZ_CHECK(read.URL() == request.URL());
  FUZZ_CHECK(read.QueryString() == request.QueryString());
  FUZZ_CHECK(std::equal(request.QueryArgs_begin(), request.QueryArgs_end(), read.QueryArgs_begin(),
                        read.QueryArgs_end()));
  auto it = read.HttpHeaders_begin();
  for (auto sent = request.HttpHeaders_begin(); sent != request.HttpHeaders_end(); ++sent, ++it) {
    FUZZ_CHECK(it != read.HttpHeaders_end());
    FUZZ_CHECK(it->second == sent->second);
    FUZZ_CHECK(it->first == sent->first || it->first == "Content-Type");
  }
  FUZZ_CHECK(it == read.HttpHeaders_end());
  for (auto sent = request.ServerVariables_begin(); sent != request.ServerVariables_end(); ++sent) {
    const std::string* value = read.ServerVariables(sent->first);
    FUZZ_CHECK(value != nullptr);
    FUZZ_CHECK(*value == sent->second || setByContentType(sent->first));
  }
  std::istream* in = handle.Request().beginRead();
  FUZZ_CHECK(in != nullptr);
  std::string posted(sizeof kPosted, '\0');
  posted.resize(static_cast<std::size_t>(in->read(&posted[0], sizeof kPosted).gcount()));
  FUZZ_CHECK(posted == kPosted);
  FUZZ_CHECK(handle.Request().endRead());
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
    checkOverConnector(handle.Request());
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
