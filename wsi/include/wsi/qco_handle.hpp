// The connector back end: one exchange carried over the web server's connector as a block of
// typed binary records followed by the body.
#ifndef WSI_QCO_HANDLE_HPP
#define WSI_QCO_HANDLE_HPP

#include <iosfwd>
#include <string>

#include <qco/qco.hpp>
#include <wsi/export.h>
#include <wsi/interface.hpp>

namespace wsi {

class QcoHandle;

// A request read from the connector's record block. The posted data follows the block on the
// same stream.
class WSI_API QcoRequest : public Request {
 public:
  // Both references name the connector's stream: the data stream is the one whose state decides
  // success and whose buffer holds the connector's error code, the record stream the one the
  // block is read from.
  QcoRequest(std::iostream& data, std::iostream& records)
      : data_(data), records_(records), method_(Http::InvalidMethod), ReadEnded(false) {}
  virtual ~QcoRequest();

  // Reads the record block; true on success. Failures are logged, never thrown.
  bool init(const QcoHandle& handle);

  virtual Http::MethodId Method() const;
  virtual const std::string& HttpURL() const;
  virtual const std::string& URL() const;
  virtual const std::string& QueryString() const;
  virtual const std::string* QueryArg(const std::string& name) const;
  virtual OrderedNameTable::const_iterator QueryArgs_begin() const;
  virtual OrderedNameTable::const_iterator QueryArgs_end() const;
  virtual const std::string* HttpHeaders(const std::string& name) const;
  virtual OrderedNameTable::const_iterator HttpHeaders_begin() const;
  virtual OrderedNameTable::const_iterator HttpHeaders_end() const;
  virtual const std::string* ServerVariables(const std::string& name) const;
  virtual NameTable::const_iterator ServerVariables_begin() const;
  virtual NameTable::const_iterator ServerVariables_end() const;
  virtual std::istream* beginRead();
  virtual bool endRead();
  virtual void _dump(std::ostream& os) const;

 private:
  friend class QcoResponse;

  WSI_LOCAL void _readRecord(unsigned char type);
  WSI_LOCAL bool _initFailed();

  std::iostream& data_;
  std::iostream& records_;
  Http::MethodId method_;
  std::string http_url_;
  std::string url_;
  std::string query_string_;
  OrderedNameTable query_args_;
  OrderedNameTable headers_;
  NameTable variables_;
  bool ReadEnded;
};

// A response whose headers go back over the connector as a record block, followed by the body.
// Ending it turns the connection round for the next request.
class WSI_API QcoResponse : public Response {
 public:
  QcoResponse(std::iostream& data, std::iostream& records)
      : data_(data),
        records_(records),
        HttpStatus(Http::InvalidStatus),
        ContentType("application/octet-stream"),
        ContentEncoding("utf-8"),
        content_length_set_(false),
        ContentLength(0),
        HeadersSent(false),
        ended_(false) {}
  // Ends a response that was not ended and whose request was read, as _endWrite() does.
  virtual ~QcoResponse();

  // Takes over the request's initialisation-failed flag; true when the request was read.
  bool init(const QcoHandle& handle);

  virtual void setHttpStatus(Http::Status status);
  virtual void setContentType(const std::string& type);
  virtual void setContentEncoding(const std::string& encoding);
  virtual void setContentLength(unsigned long length);
  virtual void setHttpHeader(const std::string& name, const std::string& value);
  virtual std::ostream* beginWrite();
  virtual bool endWrite();
  virtual void flush();
  virtual void close();
  virtual void _setHttpHeader(const std::string& name, const std::string& value);
  virtual void _dump(std::ostream& os) const;

  // Ends the response: sends the headers once, flushes and prepares the connector for the next
  // request. True when all of it succeeded.
  bool _endWrite();

 private:
  WSI_LOCAL void _sendHeadersOnce();
  void _doSendHeaders();

  std::iostream& data_;
  std::iostream& records_;
  Http::Status HttpStatus;
  std::string ContentType;
  std::string ContentEncoding;
  bool content_length_set_;
  unsigned long ContentLength;
  OrderedNameTable headers_;
  bool HeadersSent;
  bool ended_;
};

// One exchange over the host's connector. The host builds it (this constructor is compiled into
// the host program), lends it to a context with "handle(i)", and destroys it after the context.
class WSI_API QcoHandle : public Handle {
 public:
  explicit QcoHandle(qco::QorvaConnector& connector)
      : connector_(&connector),
        request_(connector.stream(), connector.stream()),
        response_(connector.stream(), connector.stream()) {
    // The response takes over the request's initialisation result, so the request goes first.
    request_.init(*this);
    response_.init(*this);
  }
  virtual ~QcoHandle();

  virtual wsi::Request& Request();
  virtual const wsi::Request& Request() const;
  virtual wsi::Response& Response();
  virtual const wsi::Response& Response() const;
  virtual void _dump(std::ostream& os) const;

 private:
  // The connector the handle was built over: kept for the host's debugger, never read or
  // released by the library.
#if defined(__GNUC__) || defined(__clang__)
  __attribute__((unused))
#endif
  qco::QorvaConnector* connector_;
  QcoRequest request_;
  QcoResponse response_;
};

}  // namespace wsi

#endif  // WSI_QCO_HANDLE_HPP
