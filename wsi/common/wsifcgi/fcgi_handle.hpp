// One FastCGI request as the host sees it: the CGI mapping of its parameters, the posted data read
// from stdin records as they arrive, and the CGI header block and body sent as stdout records.
#ifndef WSI_COMMON_WSIFCGI_FCGI_HANDLE_HPP
#define WSI_COMMON_WSIFCGI_FCGI_HANDLE_HPP

#include <istream>
#include <ostream>

#include <wsi/cgi_handle.hpp>
#include "wsi/common/wsifcgi/fcgi_connection.hpp"
#include "wsi/common/wsifcgi/fcgi_streams.hpp"

namespace wsi {

// A request built from the FastCGI parameters; its posted data is complete when the stdin
// records ended with exactly CONTENT_LENGTH bytes (with any number when it is absent or empty).
class FcgiRequest : public CgiRequest {
 public:
  FcgiRequest(const NameValueList& params, std::istream& postedData, fcgi::StdinBuf& stdinBuf);

 protected:
  // Reads what the host left of the posted data (dropping at most the drain limit) and tells
  // whether it ended as announced.
  virtual bool _postedDataComplete() const;

 private:
  fcgi::StdinBuf& stdin_buf_;
};

// A response sent as stdout records. Its end drops unread posted data, then sends what is buffered
// with the end-request record; a response that failed, or whose request the web server aborted,
// ends without that record and the connection closes.
class FcgiResponse : public CgiResponse {
 public:
  FcgiResponse(std::ostream& output, bool headRequest, fcgi::Connection& connection,
               fcgi::StdinBuf& stdinBuf, fcgi::StdoutBuf& stdoutBuf);
  // Ends a response that was not ended, with the FastCGI end step.
  virtual ~FcgiResponse();

  // End the response with its last bytes and the end-request record in one send.
  virtual bool endWrite();
  virtual void close();

 protected:
  virtual bool _endResponse(bool complete);

 private:
  fcgi::Connection& connection_;
  fcgi::StdinBuf& stdin_buf_;
  fcgi::StdoutBuf& stdout_buf_;
};

// The handle of the request that the connection's codec holds ready.
class FcgiHandle : public Handle {
 public:
  explicit FcgiHandle(fcgi::Connection& connection);
  virtual ~FcgiHandle();

  virtual wsi::Request& Request();
  virtual const wsi::Request& Request() const;
  virtual wsi::Response& Response();
  virtual const wsi::Response& Response() const;
  virtual void _dump(std::ostream& os) const;

  fcgi::Connection& connection() { return connection_; }
  // Ends the response if the host did not, and tells whether the connection can carry the next
  // request: the web server asked to keep it, the exchange completed and the posted data ended.
  bool finish();

 private:
  fcgi::Connection& connection_;
  fcgi::StdinBuf stdin_buf_;
  fcgi::StdoutBuf stdout_buf_;
  std::istream posted_data_;
  std::ostream output_;
  FcgiRequest request_;
  FcgiResponse response_;
};

}  // namespace wsi

#endif  // WSI_COMMON_WSIFCGI_FCGI_HANDLE_HPP
