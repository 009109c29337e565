// One FastCGI request as the host sees it.
#include "wsi/common/wsifcgi/fcgi_handle.hpp"

#include <wx/log.hpp>
#include "wsi/common/dump.hpp"

namespace wsi {

FcgiRequest::FcgiRequest(const NameValueList& params, std::istream& postedData,
                         fcgi::StdinBuf& stdinBuf)
    : CgiRequest(params, postedData), stdin_buf_(stdinBuf) {
  // FastCGI ends the posted data with a record of its own, so a request without CONTENT_LENGTH
  // (a chunked upload passed on as it came) still has a known end.
  const std::string* length = ServerVariables("CONTENT_LENGTH");
  if (length != nullptr && !length->empty()) stdin_buf_.expect(_postedLength());
}

bool FcgiRequest::_postedDataComplete() const {
  return stdin_buf_.drain(stdin_buf_.drainLimit());
}

FcgiResponse::FcgiResponse(std::ostream& output, bool headRequest, fcgi::Connection& connection,
                           fcgi::StdinBuf& stdinBuf, fcgi::StdoutBuf& stdoutBuf)
    : CgiResponse(output, headRequest),
      connection_(connection),
      stdin_buf_(stdinBuf),
      stdout_buf_(stdoutBuf) {}

// A host may have set an exception mask on the response stream: its exception stops here, as in
// every response destructor, and the response is lost as on any failed stream.
FcgiResponse::~FcgiResponse() {
  try {
    close();
  } catch (...) {
  }
}

bool FcgiResponse::endWrite() {
  stdout_buf_.holdFlushes();
  return CgiResponse::endWrite();
}

void FcgiResponse::close() {
  stdout_buf_.holdFlushes();
  CgiResponse::close();
}

bool FcgiResponse::_endResponse(bool complete) {
  const unsigned id = connection_.codec().requestId();
  if (complete) stdin_buf_.drain(stdin_buf_.drainLimit());
  if (connection_.codec().aborted()) {
    _clientGone();
    connection_.markBroken();
    if (plog && plog->admits<3>())
      plog->Log<3>(fcgi::kLogSource, __LINE__, "wsi::FcgiResponse::_endResponse",
                   "FastCGI request %u was aborted by the web server", id);
    return false;
  }
  if (complete && stdout_buf_.finish()) return true;
  // Only the end of the response can go missing now: the connection closes without it.
  connection_.markBroken();
  if (plog && plog->admits<3>())
    plog->Log<3>(fcgi::kLogSource, __LINE__, "wsi::FcgiResponse::_endResponse",
                 "FastCGI request %u: the response did not reach the web server whole", id);
  return false;
}

FcgiHandle::FcgiHandle(fcgi::Connection& connection)
    : connection_(connection),
      stdin_buf_(connection, connection.options().max_drain_bytes),
      stdout_buf_(connection, connection.codec().requestId()),
      posted_data_(&stdin_buf_),
      output_(&stdout_buf_),
      request_(connection.codec().params(), posted_data_, stdin_buf_),
      response_(output_, request_.Method() == Http::Head, connection, stdin_buf_, stdout_buf_) {}

FcgiHandle::~FcgiHandle() {}

wsi::Request& FcgiHandle::Request() {
  return request_;
}
const wsi::Request& FcgiHandle::Request() const {
  return request_;
}
wsi::Response& FcgiHandle::Response() {
  return response_;
}
const wsi::Response& FcgiHandle::Response() const {
  return response_;
}

void FcgiHandle::_dump(std::ostream& os) const {
  _dumpExchange(os, request_, response_);
}

bool FcgiHandle::finish() {
  // An exception that the host's mask on the response stream raises while the response ends
  // leaves the response incomplete: the connection is not reused.
  try {
    response_.close();
  } catch (...) {
    connection_.markBroken();
  }
  return !connection_.broken() && connection_.codec().keepConnection() && stdin_buf_.ended();
}

}  // namespace wsi
