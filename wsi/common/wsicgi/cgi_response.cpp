// The response written as a CGI header block and the body, shared by the CGI and FastCGI back
// ends.
#include <ostream>
#include <sstream>
#include <string>

#include <wsi/cgi_handle.hpp>
#include <wx/char_casing.hpp>
#include <wx/log.hpp>
#include "wsi/common/dump.hpp"
#include "wsi/common/wsicgi/cgi_header_block.hpp"
#include "wsi/common/wsicgi/cgi_variables.hpp"

namespace wsi {

namespace {

bool nameIs(const std::string& name, const char* literal) {
  return wx::char_casing<char, wx::language::english>::nocase_compare(name.c_str(), literal) == 0;
}

}  // namespace

CgiResponse::CgiResponse(std::ostream& output, bool headRequest)
    : output_(&output),
      status_(Http::InvalidStatus),
      content_type_("application/octet-stream"),
      content_encoding_("utf-8"),
      content_length_known_(false),
      content_length_(0),
      head_request_(headRequest),
      HeadersSent(false),
      ended_(false),
      client_gone_(false),
      discard_(&discard_buf_) {
  InitFail = false;
}

// A stream that throws on failure (its exception mask set) must not end the process from a
// destructor: its exception stops here, and the response is lost as on any failed stream.
CgiResponse::~CgiResponse() {
  try {
    CgiResponse::close();
  } catch (...) {
  }
}

void CgiResponse::setHttpStatus(Http::Status status) {
  status_ = status;
}

void CgiResponse::setContentType(const std::string& type) {
  if (_acceptableText("content type", type))
    content_type_ = type.empty() ? "application/octet-stream" : type;
}

void CgiResponse::setContentEncoding(const std::string& encoding) {
  if (_acceptableText("content encoding", encoding)) content_encoding_ = encoding;
}

void CgiResponse::setContentLength(unsigned long length) {
  content_length_ = length;
  content_length_known_ = true;
}

// A header that cannot be written is refused whole, before the rules turn part of it into the
// content type or encoding.
void CgiResponse::setHttpHeader(const std::string& name, const std::string& value) {
  if (_acceptableHeader(name, value)) _setHttpHeaderHelper<wx::encoding::host>(name, value);
}

// Replaces the value of the first header of that name and drops the later ones, so that the
// name has this one value; a new name goes last.
void CgiResponse::_setHttpHeader(const std::string& name, const std::string& value) {
  if (!_acceptableHeader(name, value)) return;
  NameValueList::iterator first = headers_.begin();
  while (first != headers_.end() && !nameIs(first->first, name.c_str()))
    ++first;
  if (first == headers_.end()) {
    headers_.push_back(std::make_pair(name, value));
    return;
  }
  first->second = value;
  NameValueList::iterator kept = first + 1;
  for (NameValueList::iterator it = first + 1; it != headers_.end(); ++it)
    if (!nameIs(it->first, name.c_str())) *kept++ = *it;
  headers_.erase(kept, headers_.end());
}

void CgiResponse::addHttpHeader(const std::string& name, const std::string& value) {
  if (nameIs(name, "Content-Type") || nameIs(name, "Content-Length")) {
    setHttpHeader(name, value);
    return;
  }
  if (_acceptableHeader(name, value)) headers_.push_back(std::make_pair(name, value));
}

bool CgiResponse::_acceptableText(const char* what, const std::string& text) const {
  if (!cgi::holdsLineBreak(text)) return true;
  if (plog)
    plog->Log<3>(cgi::kLogSource, __LINE__, "wsi::CgiResponse::_acceptableText",
                 "Refused the %s '%s': it holds CR, LF or NUL!", what, text.c_str());
  return false;
}

// A name outside the HTTP token characters or a value with a line break would start a line of
// its own in the header block; "Status" is the block's own first line.
bool CgiResponse::_acceptableHeader(const std::string& name, const std::string& value) const {
  const char* why = nullptr;
  if (!cgi::isHeaderName(name))
    why = "its name is not an HTTP token";
  else if (nameIs(name, "Status"))
    why = "the status is set with setHttpStatus";
  else if (cgi::holdsLineBreak(value))
    why = "its value holds CR, LF or NUL";
  if (why == nullptr) return true;
  if (plog)
    plog->Log<3>(cgi::kLogSource, __LINE__, "wsi::CgiResponse::_acceptableHeader",
                 "Refused the header '%s': %s!", name.c_str(), why);
  return false;
}

std::ostream* CgiResponse::beginWrite() {
  if (InitFail || ended_) return nullptr;
  _sendHeadersOnce();
  return head_request_ ? &discard_ : output_;
}

void CgiResponse::flush() {
  if (InitFail || ended_) return;
  _sendHeadersOnce();
  if (!output_->fail()) output_->flush();
}

void CgiResponse::close() {
  if (InitFail || ended_) return;
  _end();
}

bool CgiResponse::endWrite() {
  if (InitFail || ended_) return false;
  return _end();
}

bool CgiResponse::_end() {
  ended_ = true;
  _sendHeadersOnce();
  bool complete = !output_->fail();
  if (complete) {
    output_->flush();
    complete = !output_->fail();
  }
  const bool ended = _endResponse(complete) && !client_gone_;
  if (!ended && plog)
    plog->Log<3>(cgi::kLogSource, __LINE__, "wsi::CgiResponse::_end",
                 client_gone_ ? "Response failed: the client has gone away!"
                              : "Response failed: the output stream failed!");
  return ended;
}

bool CgiResponse::_endResponse(bool complete) {
  return complete;
}

void CgiResponse::_clientGone() {
  client_gone_ = true;
}

bool CgiResponse::_headersSent() const {
  return HeadersSent;
}

// Writes the header block in one piece. A status that cannot be sent goes out as 500, logged.
void CgiResponse::_sendHeadersOnce() {
  if (HeadersSent) return;
  HeadersSent = true;
  if (!cgi::isSendableStatus(status_) && plog)
    plog->Log<3>(cgi::kLogSource, __LINE__, "wsi::CgiResponse::_sendHeadersOnce",
                 "Response status %d (%s) cannot be sent; sending 500 Internal Server Error!",
                 static_cast<int>(status_), Http::StatusDesc<wx::encoding::host>(status_));
  if (plog && plog->admits<7>()) {
    std::ostringstream dump;
    _dump(dump);
    plog->Log<7>(cgi::kLogSource, __LINE__, "wsi::CgiResponse::_sendHeadersOnce", "%s",
                 dump.str().c_str());
  }
  const cgi::HeaderBlock settings = {
      status_, content_type_, content_encoding_, content_length_known_, content_length_, &headers_};
  std::string block;
  cgi::appendHeaderBlock(block, settings);
  output_->write(block.data(), static_cast<std::streamsize>(block.size()));
}

void CgiResponse::_dump(std::ostream& os) const {
  _dumpResponseSettings(os, status_, content_type_, content_encoding_, content_length_known_,
                        content_length_, HeadersSent);
  _dumpList(os, "HTTP Header(s):", headers_);
}

CgiResponse::DiscardBuf::int_type CgiResponse::DiscardBuf::overflow(int_type c) {
  return traits_type::not_eof(c);
}

std::streamsize CgiResponse::DiscardBuf::xsputn(const char*, std::streamsize n) {
  return n;
}

}  // namespace wsi
