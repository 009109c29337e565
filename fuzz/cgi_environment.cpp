// Fuzz target: CGI environments through a CGI handle. The input is an environment block as a
// process receives it, entries separated by NUL bytes; after the first empty entry (two NUL bytes
// in a row) come the bytes of standard input.
//
// The request is checked as every request's tables are (fuzz_check.hpp), against the entries
// (every "NAME=value" entry is a server variable, the last one of a name winning; headers are
// named by a web server's rules and hold the value of the variable they came from), and its
// posted data against standard input and CONTENT_LENGTH. Then the target echoes every request
// header back, once replacing and once appending, and checks that the CGI header block is whole:
// a status line, lines free of lone CR and LF, one empty line, then the body (none for HEAD).
#include <cstdint>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <wsi/cgi_handle.hpp>
#include <wx/char_casing.hpp>
#include "fuzz_check.hpp"

namespace {

typedef wx::char_casing<char, wx::language::english> Casing;

// The environment entries of `block`, split at NUL bytes, up to the first empty entry; `input`
// receives what follows it.
std::vector<std::string> entriesOf(const std::string& block, std::string& input) {
  std::vector<std::string> entries;
  std::string::size_type start = 0;
  while (start < block.size()) {
    const std::string::size_type end = std::min(block.find('\0', start), block.size());
    if (end == start) {
      input = block.substr(start + 1);
      break;
    }
    entries.push_back(block.substr(start, end - start));
    start = end + 1;
  }
  return entries;
}

void checkVariables(const wsi::Request& request, const std::vector<std::string>& entries) {
  wsi::NameTable expected;
  for (const std::string& entry : entries) {
    const std::string::size_type eq = entry.find('=');
    if (eq != std::string::npos) expected[entry.substr(0, eq)] = entry.substr(eq + 1);
  }
  FUZZ_CHECK(std::distance(request.ServerVariables_begin(), request.ServerVariables_end()) ==
             static_cast<std::ptrdiff_t>(expected.size()));
  for (const auto& variable : expected) {
    const std::string* value = request.ServerVariables(variable.first);
    FUZZ_CHECK(value != nullptr && *value == variable.second);
  }
  // A header's name is the variable's name rebuilt, so it never holds '_'; its value is the value
  // of a variable of the environment.
  for (auto it = request.HttpHeaders_begin(); it != request.HttpHeaders_end(); ++it) {
    FUZZ_CHECK(!it->first.empty() && it->first.find('_') == std::string::npos);
    const std::string variable =
        Casing::nocase_compare(it->first.c_str(), "Content-Type") == 0     ? "CONTENT_TYPE"
        : Casing::nocase_compare(it->first.c_str(), "Content-Length") == 0 ? "CONTENT_LENGTH"
                                                                           : "";
    if (!variable.empty()) FUZZ_CHECK(*request.ServerVariables(variable) == it->second);
  }
  FUZZ_CHECK(request.URL() == request.HttpURL().substr(0, request.HttpURL().find('?')));
}

// Reads the posted data: CONTENT_LENGTH bytes of `input`, fewer (and endRead() false) when the
// input is shorter; no stream when CONTENT_LENGTH is malformed.
void checkPosted(wsi::CgiStreamRequest& request, const std::string& input) {
  std::istream* in = request.beginRead();
  if (in == nullptr) {
    FUZZ_CHECK(request._postedLength() == 0 && request.ServerVariables("CONTENT_LENGTH"));
    FUZZ_CHECK(!request.endRead());
    return;
  }
  const std::string data((std::istreambuf_iterator<char>(*in)), std::istreambuf_iterator<char>());
  const bool whole = request._postedLength() <= input.size();
  FUZZ_CHECK(data == input.substr(0, whole ? request._postedLength() : input.size()));
  FUZZ_CHECK(request.endRead() == whole);
}

// The header block of `text`: a status line, "Name: value" lines without CR or LF, an empty
// line; then `body`.
void checkResponse(const std::string& text, const std::string& body) {
  FUZZ_CHECK(text.compare(0, 8, "Status: ") == 0);
  const std::string::size_type end = text.find("\r\n\r\n");
  FUZZ_CHECK(end != std::string::npos);
  FUZZ_CHECK(text.compare(end + 4, std::string::npos, body) == 0);
  const int status = std::stoi(text.substr(8, 3));
  FUZZ_CHECK(status >= 200 && status <= 999 && text[11] == ' ');
  for (std::string::size_type line = 0; line < end;) {
    const std::string::size_type next = text.find("\r\n", line);
    const std::string content = text.substr(line, next - line);
    FUZZ_CHECK(content.find_first_of(std::string("\r\n\0", 3)) == std::string::npos);
    FUZZ_CHECK(content.find(": ") != std::string::npos && content.find(": ") > 0);
    line = next + 2;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input;
  std::vector<std::string> entries =
      entriesOf(std::string(reinterpret_cast<const char*>(data), size), input);
  std::vector<char*> envp;
  for (std::string& entry : entries)
    envp.push_back(&entry[0]);
  envp.push_back(nullptr);

  std::istringstream in(input);
  std::ostringstream out;
  std::string body;
  bool head = false;
  {
    wsi::CgiHandle handle(envp.data(), in, out);
    wsi::Request& request = handle.Request();
    fuzz::checkTables(request);
    checkVariables(request, entries);
    checkPosted(static_cast<wsi::CgiStreamRequest&>(request), input);

    wsi::CgiResponse& response = handle.cgiResponse();
    response.setHttpStatus(static_cast<wsi::Http::Status>(
        request.Method() == wsi::Http::InvalidMethod ? 400 : 200 + request.Method()));
    for (auto it = request.HttpHeaders_begin(); it != request.HttpHeaders_end(); ++it) {
      response.setHttpHeader(it->first, it->second);
      response.addHttpHeader(it->first, it->second);
    }
    response.setHttpHeader("X-Query", request.QueryString());
    for (auto it = request.QueryArgs_begin(); it != request.QueryArgs_end(); ++it)
      body += it->first + "=" + it->second + "\n";
    head = request.Method() == wsi::Http::Head;
    std::ostream* os = response.beginWrite();
    FUZZ_CHECK(os != nullptr);
    *os << body;
    FUZZ_CHECK(response.endWrite());
  }
  checkResponse(out.str(), head ? std::string() : body);
  return 0;
}
