// The object model a host program sees for one web exchange: a handle gives one request and
// one response. Host programs are compiled against the order of the virtual operations below;
// it never changes.
#ifndef WSI_INTERFACE_HPP
#define WSI_INTERFACE_HPP

#include <pthread.h>
#include <iosfwd>
#include <map>
#include <string>

#include <wsi/export.h>
#include <wsi/http.hpp>
#include <wsi/less_nocase.hpp>
#include <wx/encoding.hpp>
#include <wx/map_ordered.hpp>

namespace wx {
namespace log {
class log;
}
}  // namespace wx

namespace wsi {

class Request;
class Response;

// Query arguments, request headers and response headers: case-insensitive names, iterated in
// order of first insertion.
typedef wx::map_ordered<std::string, std::string, less_nocase_eng> OrderedNameTable;
// Server variables: case-insensitive names, iterated in name order.
typedef std::map<std::string, std::string, less_nocase_eng> NameTable;

// One exchange: the request the web server received and the response that goes back. A handle
// holds both by value; they live exactly as long as the handle.
class WSI_API Handle {
 public:
  virtual ~Handle();
  virtual wsi::Request& Request() = 0;
  virtual const wsi::Request& Request() const = 0;
  virtual wsi::Response& Response() = 0;
  virtual const wsi::Response& Response() const = 0;
  // Writes a readable description of the whole exchange, for diagnostics.
  virtual void _dump(std::ostream& os) const = 0;

  // The library's one logger: null until the first handle is built and after closeLog().
  static wx::log::log* plog_;
  // Guards the logging set-up; reset by closeLog().
  static pthread_once_t init_log_once_;
  // Sets up the logger from the host configuration. Run only through pthread_once.
  static void _initLogOnce();
  // Deletes the logger, so that the next handle built sets logging up again. It takes no
  // lock: call it only when no other thread builds a handle or logs.
  static void closeLog();

 protected:
  // Sets up logging once per process (between closeLog() calls), whichever thread comes first.
  Handle();
};

// What the web server received. Look-ups compare names case-insensitively, return a pointer to
// the stored value or null when the name is absent, and never insert.
class WSI_API Request {
 public:
  virtual ~Request();
  virtual Http::MethodId Method() const = 0;
  virtual const std::string& HttpURL() const = 0;
  virtual const std::string& URL() const = 0;
  virtual const std::string& QueryString() const = 0;
  virtual const std::string* QueryArg(const std::string& name) const = 0;
  virtual OrderedNameTable::const_iterator QueryArgs_begin() const = 0;
  virtual OrderedNameTable::const_iterator QueryArgs_end() const = 0;
  virtual const std::string* HttpHeaders(const std::string& name) const = 0;
  virtual OrderedNameTable::const_iterator HttpHeaders_begin() const = 0;
  virtual OrderedNameTable::const_iterator HttpHeaders_end() const = 0;
  virtual const std::string* ServerVariables(const std::string& name) const = 0;
  virtual NameTable::const_iterator ServerVariables_begin() const = 0;
  virtual NameTable::const_iterator ServerVariables_end() const = 0;
  // The stream of the posted data, or null when initialisation failed or reading has ended.
  virtual std::istream* beginRead() = 0;
  // Ends reading: false when initialisation failed or reading had ended already, otherwise
  // whether the posted-data stream is still in a good state.
  virtual bool endRead() = 0;
  virtual void _dump(std::ostream& os) const = 0;

 protected:
  // Takes the current logger and starts with initialisation failed.
  Request();

  wx::log::log* plog;  // the library's logger when this object was built; may be null
  bool InitFail;       // set until the back end's set-up succeeded; refuses body operations
};

// What goes back. The setters only record; the headers are sent once, at the first of
// beginWrite(), flush(), endWrite() and close().
class WSI_API Response {
 public:
  virtual ~Response();
  virtual void setHttpStatus(Http::Status status) = 0;
  virtual void setContentType(const std::string& type) = 0;
  virtual void setContentEncoding(const std::string& encoding) = 0;
  virtual void setContentLength(unsigned long length) = 0;
  virtual void setHttpHeader(const std::string& name, const std::string& value) = 0;
  // Sends the headers if not yet sent and returns the body stream; null when initialisation
  // failed or writing has ended.
  virtual std::ostream* beginWrite() = 0;
  // Ends the response: false when initialisation failed or writing had ended, otherwise whether
  // the whole response reached its stream.
  virtual bool endWrite() = 0;
  virtual void flush() = 0;
  virtual void close() = 0;
  // Stores one header for sending; a later value for the same name replaces the earlier one.
  virtual void _setHttpHeader(const std::string& name, const std::string& value) = 0;
  virtual void _dump(std::ostream& os) const = 0;

  // The header rules shared by every response: Content-Type becomes the content type and its
  // charset parameter the content encoding, a Content-Length of decimal digits becomes the
  // content length (any other Content-Length is dropped), and every other header goes to
  // _setHttpHeader unchanged. Instantiated for Encoding 0 and 3, which behave identically.
  template <wx::encoding::Encoding E>
  void _setHttpHeaderHelper(const std::string& name, const std::string& value);

  // Splits a Content-Type value at its parameters: `type` receives the media type with every
  // parameter but charset, `encoding` the value of the last charset parameter. Returns false,
  // leaving both untouched, when `value` holds no ';'. A non-static member, as hosts call it
  // with an object; it reads nothing of the object.
  template <wx::encoding::Encoding E>
  bool _extractContentEncoding(const std::string& value, std::string& type, std::string& encoding);

 protected:
  // Takes the current logger and starts with initialisation failed.
  Response();

  wx::log::log* plog;  // the library's logger when this object was built; may be null
  bool InitFail;       // set until the back end's set-up succeeded; refuses every write
};

}  // namespace wsi

#endif  // WSI_INTERFACE_HPP
