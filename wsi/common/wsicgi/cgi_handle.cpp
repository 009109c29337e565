// The CGI back end: a request from the environment and CONTENT_LENGTH bytes of an input stream,
// a response written to an output stream.
#include <cstring>
#include <istream>
#include <ostream>
#include <string>

#include <wsi/cgi_handle.hpp>
#include "wsi/common/dump.hpp"

namespace wsi {

NameValueList CgiEnvironment(char** envp) {
  NameValueList variables;
  if (envp == nullptr) return variables;
  for (char** entry = envp; *entry != nullptr; ++entry) {
    const char* const eq = std::strchr(*entry, '=');
    if (eq == nullptr) continue;
    const char* const name = *entry;
    variables.push_back(std::make_pair(std::string(name, eq), std::string(eq + 1)));
  }
  return variables;
}

// `body_` is only stored by the base class, which never reads it while it is being built.
CgiStreamRequest::CgiStreamRequest(const NameValueList& variables, std::istream& input)
    : CgiRequest(variables, body_), body_buf_(input.rdbuf(), _postedLength()), body_(&body_buf_) {}

CgiStreamRequest::~CgiStreamRequest() {}

bool CgiStreamRequest::_postedDataComplete() const {
  return body_buf_.complete();
}

CgiHandle::CgiHandle(char** envp, std::istream& input, std::ostream& output)
    : request_(CgiEnvironment(envp), input), response_(output, request_.Method() == Http::Head) {}

CgiHandle::~CgiHandle() {}

wsi::Request& CgiHandle::Request() {
  return request_;
}
const wsi::Request& CgiHandle::Request() const {
  return request_;
}
wsi::Response& CgiHandle::Response() {
  return response_;
}
const wsi::Response& CgiHandle::Response() const {
  return response_;
}
CgiResponse& CgiHandle::cgiResponse() {
  return response_;
}

void CgiHandle::_dump(std::ostream& os) const {
  _dumpExchange(os, request_, response_);
}

}  // namespace wsi
