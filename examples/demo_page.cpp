// The example host's page: what the request carried, as plain text.
#include "demo_page.hpp"

#include <iterator>
#include <ostream>
#include <sstream>
#include <string>

namespace demo {
namespace {

// Writes a titled list of the name/value pairs of [begin, end), one "  name = value" line each.
template <class Iterator>
void writeTable(std::ostream& page, const char* title, Iterator begin, Iterator end) {
  page << '\n' << title << " (" << std::distance(begin, end) << "):\n";
  for (Iterator it = begin; it != end; ++it)
    page << "  " << it->first << " = " << it->second << '\n';
}

// The whole posted data of the request, or the empty text when there is none to read.
std::string postedData(wsi::Request& request) {
  std::istream* in = request.beginRead();
  if (in == nullptr) return std::string();
  std::string data((std::istreambuf_iterator<char>(*in)), std::istreambuf_iterator<char>());
  request.endRead();
  return data;
}

// The page text describing `request`.
std::string describe(wsi::Request& request) {
  std::ostringstream page;
  page << "wsi demo: what this request carried\n\n";
  page << "Method: " << wsi::Http::MethodNameOf<wx::encoding::host>(request.Method()) << '\n';
  page << "HTTP URL: " << request.HttpURL() << '\n';
  page << "URL: " << request.URL() << '\n';
  page << "Query string: " << request.QueryString() << '\n';
  writeTable(page, "Query arguments", request.QueryArgs_begin(), request.QueryArgs_end());
  writeTable(page, "HTTP headers", request.HttpHeaders_begin(), request.HttpHeaders_end());
  writeTable(page, "Server variables", request.ServerVariables_begin(),
             request.ServerVariables_end());
  const std::string data = postedData(request);
  page << "\nPosted data (" << data.size() << " bytes):\n" << data;
  if (!data.empty() && data[data.size() - 1] != '\n') page << '\n';
  return page.str();
}

}  // namespace

bool answer(wsi::Request& request, wsi::Response& response) {
  const std::string page = describe(request);
  response.setHttpStatus(wsi::Http::Ok);
  response.setHttpHeader("Content-Type", "text/plain; charset=utf-8");
  response.setHttpHeader("X-Wsi-Demo", "answered");
  response.setContentLength(page.size());
  std::ostream* body = response.beginWrite();
  if (body != nullptr && request.Method() != wsi::Http::Head) *body << page;
  return response.endWrite();
}

}  // namespace demo
