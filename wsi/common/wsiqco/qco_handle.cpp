// The connector back end: the request read from the connector's record block, the response whose
// header block goes back as records, and the handle that holds both.
#include <charconv>
#include <istream>
#include <locale>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>

#include <qco/qco.hpp>
#include <wsi/qco_handle.hpp>
#include <wx/log.hpp>
#include <wx/url_parser.hpp>
#include "wsi/common/dump.hpp"
#include "wsi/common/wsiqco/qco_records.hpp"

namespace wsi {

namespace {

// The source label and the line labels of the connector family's messages: fixed texts, not
// where the code stands, because log readers match them.
const char kLogSource[] = "wsi/common/wsiqco";
const int kLineConnectionTerminated = 221;
const int kLineInitFailed = 223;
const int kLineRequestDump = 246;
const int kLineResponseDump = 313;
const int kLineResponseFailed = 347;

// `n` in decimal as an std::ostream in the global locale writes it: std::to_chars under the
// classic locale, the stream's own formatting (digit grouping included) under any other.
std::string decimal(unsigned long n) {
  if (std::locale() == std::locale::classic()) {
    char digits[24];
    return std::string(digits, std::to_chars(digits, digits + sizeof digits, n).ptr);
  }
  std::ostringstream out;
  out << n;
  return out.str();
}

// The connector's buffer behind `stream`, which holds the error code and the connector.
const qco::QorvaStreamBuf& connectorBuffer(const std::ios& stream) {
  return *static_cast<const qco::QorvaStreamBuf*>(stream.rdbuf());
}

}  // namespace

// --- request ------------------------------------------------------------------------------------

QcoRequest::~QcoRequest() {}

// Reads records until the end record or the end of the stream, then takes the method and the URL
// texts from the server variables and parses the query string. A failed data stream ends the
// reading through the failure exit; a record that was being read when it failed is dropped.
bool QcoRequest::init(const QcoHandle&) {
  for (;;) {
    if (data_.fail()) return _initFailed();
    if (data_.eof()) break;
    unsigned char type = qco_records::end_alt;  // also when the record stream has failed
    qco_records::readType(records_, type);
    if (data_.fail()) return _initFailed();
    if (type == qco_records::end || type == qco_records::end_alt) break;
    _readRecord(type);
  }
  method_ = Http::MethodIdOf<wx::encoding::connector>(variables_["REQUEST_METHOD"].c_str());
  http_url_ = variables_["HTTP_URL"];
  url_ = variables_["URL"];
  query_string_ = variables_["QUERY_STRING"];
  wx::query_parser<wx::encoding::connector>::type()(query_args_, query_string_);
  InitFail = false;
  if (plog && plog->admits<7>()) {
    std::ostringstream dump;
    _dump(dump);
    plog->Log<7>(kLogSource, kLineRequestDump, "wsi::QcoRequest::init", "%s", dump.str().c_str());
  }
  return true;
}

// Reads the body of one record of `type` and files it; unknown types have no body.
void QcoRequest::_readRecord(unsigned char type) {
  if (type == qco_records::status) {
    int ignored = 0;
    qco_records::readStatus(records_, ignored);
    return;
  }
  if (type != qco_records::header && type != qco_records::variable &&
      type != qco_records::content_type)
    return;
  std::string first;
  qco_records::readString(records_, first, qco_records::LongLength::halves_ored);
  if (data_.fail()) return;
  if (type == qco_records::content_type) {
    headers_["Content-Type"] = first;
    variables_["HEADER_Content-Type"] = first;
    variables_["HTTP_CONTENT_TYPE"] = std::move(first);
    return;
  }
  std::string value;
  qco_records::readString(records_, value, qco_records::LongLength::halves_ored);
  if (data_.fail()) return;
  if (type == qco_records::header)
    headers_[first] = std::move(value);
  else
    variables_.insert_or_assign(std::move(first), std::move(value));
}

// The failure exit of init: a peer that ended the connection is a trace, anything else a failure
// with the connector's code and its name. Returns false.
bool QcoRequest::_initFailed() {
  const int code = connectorBuffer(data_).error;
  if (code == qco::QorvaConnector::connection_ended) {
    if (plog && plog->admits<7>())
      plog->Log<7>(kLogSource, kLineConnectionTerminated, "wsi::QcoRequest::init",
                   "Connection terminated.");
  } else if (plog && plog->admits<3>()) {
    plog->Log<3>(kLogSource, kLineInitFailed, "wsi::QcoRequest::init",
                 "Initialization failed with error code %d (%s)!", code,
                 qco::QorvaConnector::ErrorNameOf(code));
  }
  return false;
}

Http::MethodId QcoRequest::Method() const {
  return method_;
}
const std::string& QcoRequest::HttpURL() const {
  return http_url_;
}
const std::string& QcoRequest::URL() const {
  return url_;
}
const std::string& QcoRequest::QueryString() const {
  return query_string_;
}

const std::string* QcoRequest::QueryArg(const std::string& name) const {
  return query_args_.lookup(name);
}
OrderedNameTable::const_iterator QcoRequest::QueryArgs_begin() const {
  return query_args_.begin();
}
OrderedNameTable::const_iterator QcoRequest::QueryArgs_end() const {
  return query_args_.end();
}

const std::string* QcoRequest::HttpHeaders(const std::string& name) const {
  return headers_.lookup(name);
}
OrderedNameTable::const_iterator QcoRequest::HttpHeaders_begin() const {
  return headers_.begin();
}
OrderedNameTable::const_iterator QcoRequest::HttpHeaders_end() const {
  return headers_.end();
}

const std::string* QcoRequest::ServerVariables(const std::string& name) const {
  const NameTable::const_iterator it = variables_.find(name);
  return it == variables_.end() ? nullptr : &it->second;
}
NameTable::const_iterator QcoRequest::ServerVariables_begin() const {
  return variables_.begin();
}
NameTable::const_iterator QcoRequest::ServerVariables_end() const {
  return variables_.end();
}

// The connector stream, from which the posted data is read; null after a failed set-up or once
// reading has ended.
std::istream* QcoRequest::beginRead() {
  if (InitFail || ReadEnded) return nullptr;
  return &data_;
}

// Ends reading once. Success means the posted data was read to the end of the request message
// with no connector error: the stream is then left at end of file alone. Anything else adds
// failbit.
bool QcoRequest::endRead() {
  if (InitFail || ReadEnded) return false;
  ReadEnded = true;
  if (data_.eof() && connectorBuffer(data_).error == 0)
    data_.clear(std::ios::eofbit);
  else
    data_.clear(data_.rdstate() | std::ios::failbit);
  return data_.eof() && !data_.fail();
}

// The request dump, preceded by "InitFail=". boolalpha is left set on the stream: existing log
// readers are used to the words that follow.
void QcoRequest::_dump(std::ostream& os) const {
  os << "InitFail=" << std::boolalpha << InitFail << std::endl;
  _dumpRequestState(os, method_, http_url_, url_, query_string_, query_args_, headers_, variables_);
}

// --- response -----------------------------------------------------------------------------------

// An exception cannot leave a destructor, so one thrown while ending the response stops here; the
// members are released either way.
QcoResponse::~QcoResponse() {
  if (InitFail || ended_) return;
  try {
    _endWrite();
  } catch (...) {
  }
}

bool QcoResponse::init(const QcoHandle& handle) {
  InitFail = static_cast<const QcoRequest&>(handle.Request()).InitFail;
  return !InitFail;
}

void QcoResponse::setHttpStatus(Http::Status status) {
  HttpStatus = status;
}

void QcoResponse::setContentType(const std::string& type) {
  ContentType = type.empty() ? "application/octet-stream" : type;
}

void QcoResponse::setContentEncoding(const std::string& encoding) {
  ContentEncoding = encoding;
}

void QcoResponse::setContentLength(unsigned long length) {
  ContentLength = length;
  content_length_set_ = true;
}

void QcoResponse::setHttpHeader(const std::string& name, const std::string& value) {
  _setHttpHeaderHelper<wx::encoding::connector>(name, value);
}

void QcoResponse::_setHttpHeader(const std::string& name, const std::string& value) {
  headers_[name] = value;
}

std::ostream* QcoResponse::beginWrite() {
  if (InitFail || ended_) return nullptr;
  _sendHeadersOnce();
  return &data_;
}

void QcoResponse::flush() {
  if (InitFail || ended_) return;
  _sendHeadersOnce();
  if (!data_.fail()) data_.flush();
}

bool QcoResponse::endWrite() {
  if (InitFail || ended_) return false;
  return _endWrite();
}

void QcoResponse::close() {
  if (InitFail || ended_) return;
  _endWrite();
}

// Ends the response: headers once, a flush, then the connector turns the connection round for the
// next request; a connector that cannot do so leaves the stream failed.
bool QcoResponse::_endWrite() {
  ended_ = true;
  _sendHeadersOnce();
  if (data_.fail()) return false;
  data_.flush();
  if (data_.fail()) return false;
  if (connectorBuffer(data_).connector->PrepareToReceive() != 0)
    data_.clear(data_.rdstate() | std::ios::failbit);
  return !data_.fail();
}

// The flag goes up before the block is written, so a failure while writing is never retried.
void QcoResponse::_sendHeadersOnce() {
  if (HeadersSent) return;
  HeadersSent = true;
  _doSendHeaders();
}

// Writes the header block: status, content type (with its charset), Content-Length when set,
// every other header in insertion order, the end record; then flushes. Nothing is filtered: a
// header stored under a content name is sent as well.
void QcoResponse::_doSendHeaders() {
  if (plog && plog->admits<7>()) {
    std::ostringstream dump;
    _dump(dump);
    plog->Log<7>(kLogSource, kLineResponseDump, "wsi::QcoResponse::_doSendHeaders", "%s",
                 dump.str().c_str());
  }
  data_.clear();

  std::string block;
  qco_records::appendStatus(block, HttpStatus);
  std::string type(ContentType);
  if (!ContentEncoding.empty()) type.append("; charset=").append(ContentEncoding);
  qco_records::appendRecord(block, qco_records::content_type, type);
  if (content_length_set_)
    qco_records::appendRecord(block, qco_records::header, "Content-Length", decimal(ContentLength));
  for (OrderedNameTable::const_iterator it = headers_.begin(); it != headers_.end(); ++it)
    qco_records::appendRecord(block, qco_records::header, it->first, it->second);
  qco_records::appendEnd(block);
  records_.write(block.data(), static_cast<std::streamsize>(block.size()));

  if (!data_.fail()) data_.flush();
  if (data_.fail() && plog && plog->admits<3>())
    plog->Log<3>(kLogSource, kLineResponseFailed, "wsi::QcoResponse::_doSendHeaders",
                 "Response failed!");
}

// The response dump, preceded by "InitFail="; boolalpha stays set after that line and is cleared
// after "HeadersSent=", as existing log readers expect.
void QcoResponse::_dump(std::ostream& os) const {
  os << "InitFail=" << std::boolalpha << InitFail << std::endl;
  _dumpResponseState(os, HttpStatus, ContentType, ContentEncoding, content_length_set_,
                     ContentLength, HeadersSent, headers_);
}

// --- handle -------------------------------------------------------------------------------------

QcoHandle::~QcoHandle() {}

wsi::Request& QcoHandle::Request() {
  return request_;
}
const wsi::Request& QcoHandle::Request() const {
  return request_;
}
wsi::Response& QcoHandle::Response() {
  return response_;
}
const wsi::Response& QcoHandle::Response() const {
  return response_;
}

void QcoHandle::_dump(std::ostream& os) const {
  _dumpExchange(os, request_, response_);
}

}  // namespace wsi
