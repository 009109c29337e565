// The stream and file back ends: the request-configuration reader, the HTTP response writer and
// the two handles that own them.
#include <cctype>
#include <istream>
#include <ostream>
#include <string>

#include <wsi/ios_handle.hpp>
#include <wx/char_casing.hpp>
#include <wx/nv_pair.hpp>
#include <wx/ptr_len_pair.hpp>
#include <wx/url_decoder.hpp>
#include <wx/url_parser.hpp>
#include "wsi/common/dump.hpp"

namespace wsi {

namespace {

typedef wx::char_casing<char, wx::language::english> Casing;

// Whether the whole of `name` equals `literal`, ignoring ASCII case. Names compare as C strings,
// as the name tables do.
bool nameIs(const std::string& name, const char* literal) {
  return Casing::nocase_compare(name.c_str(), literal) == 0;
}

// Whether `name` begins with the `n` characters of `literal`, ignoring ASCII case.
bool nameBeginsWith(const std::string& name, const char* literal, unsigned long n) {
  return Casing::nocase_compare(name.c_str(), literal, n) == 0;
}

// The percent-decoding of [begin, end) into a fresh string.
std::string decoded(const char* begin, const char* end) {
  std::string out;
  wx::basic_url_decoder<false, wx::encoding::host>()(out, begin,
                                                     static_cast<unsigned long>(end - begin));
  return out;
}

// The server-variable key under which a "header." line is also filed: "HTTP_" and the whole
// configuration name, '-' turned into '_' and every other character upper-cased by the C
// library.
std::string httpVariableName(const std::string& name) {
  std::string key("HTTP_");
  key.reserve(key.size() + name.size());
  for (std::string::size_type i = 0; i < name.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(name[i]);
    key += c == '-' ? '_' : static_cast<char>(std::toupper(c));
  }
  return key;
}

// Whether [begin, end) is at least two characters long and enclosed in a matching pair of single
// or double quotes.
bool isQuoted(const char* begin, const char* end) {
  return end - begin >= 2 && (*begin == '\'' || *begin == '"') && end[-1] == *begin;
}

// The configuration names that also set a request header, and the header each sets.
struct WellKnownHeader {
  const char* variable;
  const char* header;
};
const WellKnownHeader kWellKnownHeaders[] = {{"CONTENT_TYPE", "Content-Type"},
                                             {"CONTENT_LENGTH", "Content-Length"},
                                             {"HTTP_REFERER", "Referer"},
                                             {"HTTP_USER_AGENT", "User-Agent"},
                                             {"HTTP_ACCEPT", "Accept"}};

// Closes `file` through its buffer. A close that fails (a file that never opened, a flush that
// fails) sets the fail bit and reports nothing. The caller may have set an exception mask on the
// stream it was handed; the exception that raises is dropped here, after the bit is set, because
// this runs from a destructor, where it would end the process.
template <class FileStream>
void closeKeepingMask(FileStream& file) {
  if (file.rdbuf()->close() != nullptr) return;
  try {
    file.setstate(std::ios_base::failbit);
  } catch (const std::ios_base::failure&) {
  }
}

}  // namespace

// --- request ------------------------------------------------------------------------------------

IosRequest::IosRequest(std::istream& postedData)
    : method_(Http::InvalidMethod), posted_data_(&postedData), read_ended_(false) {}

IosRequest::~IosRequest() {}

// Reads every line of `config` while the stream is good, so that a last line without a line end
// is still read; then copies the three URL variables (creating them, empty, when no line set
// them) and parses the final query string. Stream errors end the reading silently.
bool IosRequest::_loadRequest(std::istream& config) {
  std::string line;
  while (config.good()) {
    std::getline(config, line, config.widen('\n'));
    _parseConfigLine(line);
  }
  http_url_ = variables_["HTTP_URL"];
  url_ = variables_["URL"];
  query_string_ = variables_["QUERY_STRING"];
  wx::query_parser<wx::encoding::host>::type()(query_args_, query_string_);
  return true;
}

// Splits "name=value" at the first '=' (a line without one is ignored), trims white space around
// the name, unquotes or right-trims the value, percent-decodes both and files them.
void IosRequest::_parseConfigLine(const std::string& line) {
  const std::string::size_type eq = line.find('=');
  if (eq == std::string::npos) return;
  const char* const data = line.data();

  const char* name_begin = data;
  const char* name_end = data + eq;
  wx::space_stripper()(name_begin, name_end);

  const char* value_begin = data + eq + 1;
  const char* value_end = data + line.size();
  wx::space_stripper()(value_begin, value_end);
  if (isQuoted(value_begin, value_end)) {
    ++value_begin;
    --value_end;
  } else {
    // Leading white space is kept on purpose ("a = b" gives " b"): existing configurations
    // depend on it.
    value_begin = data + eq + 1;
  }

  _parseConfigVar(decoded(name_begin, name_end), decoded(value_begin, value_end));
}

// Files one decoded variable: "header." names become headers (and two derived server
// variables), HTTP_URL and URL fill the URL variables without overriding explicit ones, and every
// other name becomes a server variable, five of them also a header.
void IosRequest::_parseConfigVar(const std::string& name, const std::string& value) {
  static const char kHeaderPrefix[] = "header.";
  static const unsigned long kHeaderPrefixLen = sizeof kHeaderPrefix - 1;

  if (nameBeginsWith(name, kHeaderPrefix, kHeaderPrefixLen)) {
    const std::string header = name.substr(kHeaderPrefixLen);
    headers_[header] = value;
    if (nameIs(header, "Content-Type"))
      variables_["CONTENT_TYPE"] = value;
    else if (nameIs(header, "Content-Length"))
      variables_["CONTENT_LENGTH"] = value;
    // Both derived keys keep the "header." prefix: existing hosts look them up that way.
    variables_["HEADER_" + name] = value;
    variables_[httpVariableName(name)] = value;
    return;
  }

  if (nameIs(name, "HTTP_URL")) {
    variables_["HTTP_URL"] = value;
    const wx::url_query_pair parts(value);
    std::string& url = variables_["URL"];
    if (url.empty()) url = parts.first;
    std::string& query = variables_["QUERY_STRING"];
    if (query.empty()) query = parts.second;
    return;
  }

  if (nameIs(name, "URL")) {
    std::string& http_url = variables_["HTTP_URL"];
    if (http_url.empty()) http_url = value;
    const wx::url_query_pair parts(value);
    variables_["URL"] = parts.first;
    std::string& query = variables_["QUERY_STRING"];
    if (query.empty()) query = parts.second;
    return;
  }

  if (nameIs(name, "REQUEST_METHOD")) {
    method_ = Http::MethodIdOf<wx::encoding::host>(value.c_str());
    variables_[name] = Http::MethodNameOf<wx::encoding::host>(method_);
  } else {
    variables_[name] = value;
  }
  for (const WellKnownHeader& known : kWellKnownHeaders) {
    if (nameIs(name, known.variable)) {
      headers_[known.header] = value;
      return;
    }
  }
}

Http::MethodId IosRequest::Method() const {
  return method_;
}
const std::string& IosRequest::HttpURL() const {
  return http_url_;
}
const std::string& IosRequest::URL() const {
  return url_;
}
const std::string& IosRequest::QueryString() const {
  return query_string_;
}

const std::string* IosRequest::QueryArg(const std::string& name) const {
  return query_args_.lookup(name);
}
OrderedNameTable::const_iterator IosRequest::QueryArgs_begin() const {
  return query_args_.begin();
}
OrderedNameTable::const_iterator IosRequest::QueryArgs_end() const {
  return query_args_.end();
}

const std::string* IosRequest::HttpHeaders(const std::string& name) const {
  return headers_.lookup(name);
}
OrderedNameTable::const_iterator IosRequest::HttpHeaders_begin() const {
  return headers_.begin();
}
OrderedNameTable::const_iterator IosRequest::HttpHeaders_end() const {
  return headers_.end();
}

const std::string* IosRequest::ServerVariables(const std::string& name) const {
  const NameTable::const_iterator it = variables_.find(name);
  return it == variables_.end() ? nullptr : &it->second;
}
NameTable::const_iterator IosRequest::ServerVariables_begin() const {
  return variables_.begin();
}
NameTable::const_iterator IosRequest::ServerVariables_end() const {
  return variables_.end();
}

// The posted-data stream, unread; null once reading has ended or when set-up failed.
std::istream* IosRequest::beginRead() {
  if (InitFail || read_ended_) return nullptr;
  return posted_data_;
}

// Ends reading once: true when the posted-data stream has neither fail nor bad set (end of file
// alone is success). The stream is neither drained nor closed.
bool IosRequest::endRead() {
  if (InitFail || read_ended_) return false;
  read_ended_ = true;
  return !posted_data_->fail();
}

void IosRequest::_dump(std::ostream& os) const {
  _dumpRequestState(os, method_, http_url_, url_, query_string_, query_args_, headers_, variables_);
}

// --- response -----------------------------------------------------------------------------------

IosResponse::IosResponse(std::ostream& output)
    : output_(&output),
      status_(Http::InvalidStatus),
      content_type_("application/octet-stream"),
      content_encoding_("utf-8"),
      content_length_known_(false),
      content_length_(0),
      HeadersSent(false),
      ended_(false) {
  InitFail = false;
}

// Ends a response that the caller left open, as close() does. A stream that throws on failure
// (the caller set its exception mask) must not end the process from a destructor, so its
// exception stops here; the response is lost as it would be on any failed stream.
IosResponse::~IosResponse() {
  try {
    IosResponse::close();
  } catch (...) {
  }
}

void IosResponse::setHttpStatus(Http::Status status) {
  status_ = status;
}

void IosResponse::setContentType(const std::string& type) {
  content_type_ = type.empty() ? "application/octet-stream" : type;
}

void IosResponse::setContentEncoding(const std::string& encoding) {
  content_encoding_ = encoding;
}

void IosResponse::setContentLength(unsigned long length) {
  content_length_ = length;
  content_length_known_ = true;
}

void IosResponse::setHttpHeader(const std::string& name, const std::string& value) {
  _setHttpHeaderHelper<wx::encoding::host>(name, value);
}

// Stores a header for sending; kept (but never sent) when the header block is already out.
void IosResponse::_setHttpHeader(const std::string& name, const std::string& value) {
  headers_[name] = value;
}

std::ostream* IosResponse::beginWrite() {
  if (InitFail || ended_) return nullptr;
  _sendHeadersOnce();
  return output_;
}

void IosResponse::flush() {
  if (InitFail || ended_) return;
  _sendHeadersOnce();
  if (!output_->fail()) output_->flush();
}

void IosResponse::close() {
  if (InitFail || ended_) return;
  ended_ = true;
  _sendHeadersOnce();
  if (!output_->fail()) output_->flush();
}

bool IosResponse::endWrite() {
  if (InitFail || ended_) return false;
  ended_ = true;
  _sendHeadersOnce();
  if (output_->fail()) return false;
  output_->flush();
  return !output_->fail();
}

void IosResponse::_sendHeadersOnce() {
  if (HeadersSent) return;
  HeadersSent = true;
  _doSendHeaders();
}

// The status line, Content-Type, Content-Length when known, the other headers in insertion order
// and an empty line; each line ends with a single line feed and is flushed.
void IosResponse::_doSendHeaders() {
  std::ostream& os = *output_;
  os << "HTTP/1.1 " << static_cast<int>(status_) << ' '
     << Http::StatusDesc<wx::encoding::host>(status_) << std::endl;
  os << "Content-Type: " << content_type_;
  if (!content_encoding_.empty()) os << "; charset=" << content_encoding_;
  os << std::endl;
  if (content_length_known_) os << "Content-Length: " << content_length_ << std::endl;
  for (OrderedNameTable::const_iterator it = headers_.begin(); it != headers_.end(); ++it)
    os << it->first << ": " << it->second << std::endl;
  os << std::endl;
}

void IosResponse::_dump(std::ostream& os) const {
  _dumpResponseState(os, status_, content_type_, content_encoding_, content_length_known_,
                     content_length_, HeadersSent, headers_);
}

// --- stream handle ------------------------------------------------------------------------------

IosHandle::IosHandle(std::istream& config, std::istream& postedData, std::ostream& output)
    : request_(postedData), response_(_loadRequestThen(config, output)) {}

std::ostream& IosHandle::_loadRequestThen(std::istream& config, std::ostream& output) {
  request_.InitFail = !request_._loadRequest(config);
  return output;
}

IosHandle::~IosHandle() {}

wsi::Request& IosHandle::Request() {
  return request_;
}
const wsi::Request& IosHandle::Request() const {
  return request_;
}
wsi::Response& IosHandle::Response() {
  return response_;
}
const wsi::Response& IosHandle::Response() const {
  return response_;
}

void IosHandle::_dump(std::ostream& os) const {
  _dumpExchange(os, request_, response_);
}

// --- file handle --------------------------------------------------------------------------------

FioHandle::FioHandle(const char* configName, const char* postedDataName, const char* outputName)
    : config_name_(configName),
      posted_data_name_(postedDataName),
      output_name_(outputName),
      config_(config_name_.c_str(), std::ios_base::in),
      posted_data_(posted_data_name_.c_str(), std::ios_base::in),
      output_(output_name_.c_str(),
              std::ios_base::out | std::ios_base::trunc | std::ios_base::binary),
      handle_(config_, posted_data_, output_) {}

// Closes the three files, in this order, before the members go. The inner response is destroyed
// only after that, so a response the caller did not end writes its header block into a closed
// file, where it is lost. Kept as it is: existing hosts of the file back end rely on this order
// and end their response before destroying the context.
FioHandle::~FioHandle() {
  closeKeepingMask(config_);
  closeKeepingMask(posted_data_);
  closeKeepingMask(output_);
}

wsi::Request& FioHandle::Request() {
  return handle_.Request();
}
const wsi::Request& FioHandle::Request() const {
  return handle_.Request();
}
wsi::Response& FioHandle::Response() {
  return handle_.Response();
}
const wsi::Response& FioHandle::Response() const {
  return handle_.Response();
}

void FioHandle::_dump(std::ostream& os) const {
  os << "[FILES]" << std::endl;
  os << "RequestConfig=" << config_name_ << std::endl;
  os << "PostedData=" << posted_data_name_ << std::endl;
  os << "ResponseOutput=" << output_name_ << std::endl;
  handle_._dump(os);
}

}  // namespace wsi
