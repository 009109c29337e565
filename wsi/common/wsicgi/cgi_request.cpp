// The request built from CGI variables, shared by the CGI and FastCGI back ends.
#include <istream>
#include <ostream>
#include <sstream>
#include <string>

#include <wsi/cgi_handle.hpp>
#include <wx/log.hpp>
#include <wx/url_parser.hpp>
#include "wsi/common/dump.hpp"
#include "wsi/common/wsicgi/cgi_variables.hpp"

namespace wsi {

// Files every variable as a server variable and the client's headers as headers, then derives
// the method, the URL texts, the query arguments and the posted-data length. Set-up fails (and is
// logged) only for a malformed CONTENT_LENGTH: the posted data cannot be framed then.
CgiRequest::CgiRequest(const NameValueList& variables, std::istream& postedData)
    : posted_data_(&postedData),
      method_(Http::InvalidMethod),
      posted_length_(0),
      read_ended_(false) {
  for (NameValueList::const_iterator it = variables.begin(); it != variables.end(); ++it) {
    variables_[it->first] = it->second;
    const std::string header = cgi::headerNameOf(it->first);
    if (header.empty()) continue;
    // An empty CONTENT_TYPE or CONTENT_LENGTH is how web servers say that there is no body; it
    // still empties the header of a repeated variable, so the header keeps the last value.
    const bool no_body_header =
        it->second.empty() && (header == "Content-Type" || header == "Content-Length");
    if (!no_body_header || headers_.lookup(header) != nullptr) headers_[header] = it->second;
  }
  const NameTable::const_iterator method = variables_.find("REQUEST_METHOD");
  if (method != variables_.end())
    method_ = Http::MethodIdOf<wx::encoding::host>(method->second.c_str());
  cgi::urlTexts(variables_, http_url_, url_, query_string_);
  wx::query_parser<wx::encoding::host>::type()(query_args_, query_string_);

  const NameTable::const_iterator length = variables_.find("CONTENT_LENGTH");
  if (length != variables_.end() && !cgi::parseContentLength(length->second, posted_length_)) {
    if (plog)
      plog->Log<3>(cgi::kLogSource, __LINE__, "wsi::CgiRequest::CgiRequest",
                   "Initialization failed: CONTENT_LENGTH '%s' is not a byte count, so the "
                   "posted data is refused!",
                   length->second.c_str());
    return;
  }
  InitFail = false;
  if (plog && plog->admits<7>()) {
    std::ostringstream dump;
    _dump(dump);
    plog->Log<7>(cgi::kLogSource, __LINE__, "wsi::CgiRequest::CgiRequest", "%s",
                 dump.str().c_str());
  }
}

CgiRequest::~CgiRequest() {}

Http::MethodId CgiRequest::Method() const {
  return method_;
}
const std::string& CgiRequest::HttpURL() const {
  return http_url_;
}
const std::string& CgiRequest::URL() const {
  return url_;
}
const std::string& CgiRequest::QueryString() const {
  return query_string_;
}

const std::string* CgiRequest::QueryArg(const std::string& name) const {
  return query_args_.lookup(name);
}
OrderedNameTable::const_iterator CgiRequest::QueryArgs_begin() const {
  return query_args_.begin();
}
OrderedNameTable::const_iterator CgiRequest::QueryArgs_end() const {
  return query_args_.end();
}

const std::string* CgiRequest::HttpHeaders(const std::string& name) const {
  return headers_.lookup(name);
}
OrderedNameTable::const_iterator CgiRequest::HttpHeaders_begin() const {
  return headers_.begin();
}
OrderedNameTable::const_iterator CgiRequest::HttpHeaders_end() const {
  return headers_.end();
}

const std::string* CgiRequest::ServerVariables(const std::string& name) const {
  const NameTable::const_iterator it = variables_.find(name);
  return it == variables_.end() ? nullptr : &it->second;
}
NameTable::const_iterator CgiRequest::ServerVariables_begin() const {
  return variables_.begin();
}
NameTable::const_iterator CgiRequest::ServerVariables_end() const {
  return variables_.end();
}

std::istream* CgiRequest::beginRead() {
  if (InitFail || read_ended_) return nullptr;
  return posted_data_;
}

bool CgiRequest::endRead() {
  if (InitFail || read_ended_) return false;
  read_ended_ = true;
  if (posted_data_->bad()) return false;
  if (_postedDataComplete()) return true;
  if (plog)
    plog->Log<3>(cgi::kLogSource, __LINE__, "wsi::CgiRequest::endRead",
                 "Posted data incomplete: CONTENT_LENGTH announced %llu bytes!",
                 static_cast<unsigned long long>(posted_length_));
  return false;
}

std::uint64_t CgiRequest::_postedLength() const {
  return posted_length_;
}

void CgiRequest::_dump(std::ostream& os) const {
  _dumpRequestState(os, method_, http_url_, url_, query_string_, query_args_, headers_, variables_);
}

}  // namespace wsi
