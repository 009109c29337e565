// The CGI semantics shared by the back ends that web servers talk to through CGI variables (CGI
// itself, FastCGI): a request built from a list of CGI variables, a response written as a CGI
// header block followed by the body, and the CGI handle over an environment array and two
// streams.
#ifndef WSI_CGI_HANDLE_HPP
#define WSI_CGI_HANDLE_HPP

#include <cstdint>
#include <iosfwd>
#include <istream>
#include <ostream>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include <wsi/export.h>
#include <wsi/interface.hpp>

namespace wsi {

// Name/value pairs in the order given: the CGI variables of a request, the headers of a CGI
// response.
typedef std::vector<std::pair<std::string, std::string>> NameValueList;

// A request built from CGI variables:
// - every variable is a server variable, name and value unchanged (a repeated name keeps the
//   last value);
// - HTTP_<NAME> variables are the client's headers, named as the client most likely wrote them
//   ("HTTP_X_REQUEST_ID" is "X-Request-Id"); a non-empty CONTENT_TYPE or CONTENT_LENGTH is the
//   header "Content-Type" or "Content-Length" (HTTP_CONTENT_TYPE and HTTP_CONTENT_LENGTH are not
//   headers: the web server states the body's type and length in the other two);
// - the method comes from REQUEST_METHOD; the HTTP URL from REQUEST_URI, or else from
//   SCRIPT_NAME, PATH_INFO and QUERY_STRING; the URL is the HTTP URL before its first '?'; the
//   query string is QUERY_STRING when not empty, else the HTTP URL after its first '?'; the query
//   arguments are parsed from the query string as every request parses them. No HTTP_ variable
//   feeds any of them, so no client header can change them;
// - the posted data is CONTENT_LENGTH bytes (none when it is absent or empty) read from the
//   stream that the back end gives. A CONTENT_LENGTH that is not a decimal number of at most 64
//   bits leaves the request failed: it refuses its posted data; everything else stays readable.
//
// The back end says through _postedDataComplete() whether the posted data arrived whole.
class WSI_API CgiRequest : public Request {
 public:
  // Files `variables`. `postedData` belongs to the back end, which keeps it alive as long as the
  // request; it is only stored here, so it may be a member that the back end builds later.
  CgiRequest(const NameValueList& variables, std::istream& postedData);
  virtual ~CgiRequest();

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
  // The posted-data stream; null when CONTENT_LENGTH was malformed or reading has ended.
  virtual std::istream* beginRead();
  // Ends reading once: true unless the stream is bad or the back end reports that the posted
  // data did not arrive whole. End of file, and the fail state that reading past it sets, are
  // not failures: the posted data ends where CONTENT_LENGTH says. Nothing is drained.
  virtual bool endRead();
  virtual void _dump(std::ostream& os) const;

  // The number of posted-data bytes that CONTENT_LENGTH announces; 0 when it is absent, empty or
  // malformed.
  std::uint64_t _postedLength() const;

 protected:
  // Whether the posted data arrived whole as far as the back end can tell: false when its input
  // ended or broke before CONTENT_LENGTH bytes, or (where the back end can count them) delivered
  // a different number. Called by the first endRead() of a request whose set-up succeeded.
  virtual bool _postedDataComplete() const = 0;

 private:
  std::istream* posted_data_;
  Http::MethodId method_;
  std::string http_url_;
  std::string url_;
  std::string query_string_;
  OrderedNameTable query_args_;
  OrderedNameTable headers_;
  NameTable variables_;
  std::uint64_t posted_length_;
  bool read_ended_;
};

// A response written as a CGI header block, then the body, to a stream that the back end gives:
//
//   Status: 404 Not Found
//   Content-Type: text/html; charset=utf-8
//   Content-Length: 120          (only when a length was set)
//   Name: value                  (the other headers, in the order they were first set)
//                                (an empty line)
//
// Every line ends with CR LF. A status that was never set, or is not within 200 to 999, is sent as
// "500 Internal Server Error" and logged: a host that ends without choosing a status has failed
// (it threw, or forgot), and saying so beats an empty success page. A header name that is not an
// HTTP token (letters, digits and !#$%&'*+-.^_`|~), the name "Status", and a value, content type
// or content encoding holding CR, LF or NUL are refused and logged; they are never written, so
// nothing set on the response can add a line of its own to the block. For a HEAD request the body
// stream swallows every write and stays good.
//
// The back end ends the response through _endResponse(), and reports a client that has gone away
// through _clientGone().
class WSI_API CgiResponse : public Response {
 public:
  // `output` belongs to the back end and outlives the response; `headRequest` drops the body.
  CgiResponse(std::ostream& output, bool headRequest);
  // Ends a response that was not ended, as close() does, with this class's _endResponse(): a
  // derived back end ends the response in its own destructor so that its end step runs.
  virtual ~CgiResponse();

  virtual void setHttpStatus(Http::Status status);
  virtual void setContentType(const std::string& type);
  virtual void setContentEncoding(const std::string& encoding);
  virtual void setContentLength(unsigned long length);
  virtual void setHttpHeader(const std::string& name, const std::string& value);
  virtual std::ostream* beginWrite();
  // False when writing had ended, the stream failed, the end step failed or the client is gone.
  virtual bool endWrite();
  virtual void flush();
  virtual void close();
  // Stores one header; a later value for the same name (compared case-insensitively) replaces
  // every earlier one, in the place and spelling of the first.
  virtual void _setHttpHeader(const std::string& name, const std::string& value);
  virtual void _dump(std::ostream& os) const;

  // Appends one header even when one of that name is already set, for headers that may repeat
  // (Set-Cookie). Content-Type and Content-Length go to setHttpHeader, as they have one value.
  void addHttpHeader(const std::string& name, const std::string& value);

 protected:
  // The back end's end of the response, run once when it ends (endWrite(), close(), the
  // destructor), after the header block and the last flush. `complete` tells whether all of the
  // response reached the stream. Returns whether the end succeeded. This class's own step has
  // nothing more to send and returns `complete`.
  virtual bool _endResponse(bool complete);

  // Records that the client has gone away: endWrite() then returns false.
  void _clientGone();

  // Whether the header block has been written.
  bool _headersSent() const;

 private:
  // A stream buffer that accepts every byte and keeps none: the body of a HEAD response.
  class WSI_API DiscardBuf : public std::streambuf {
   protected:
    virtual int_type overflow(int_type c);
    virtual std::streamsize xsputn(const char* s, std::streamsize n);
  };

  // Whether `text` (what it is: "content type", "content encoding") is free of CR, LF and NUL;
  // logs the refusal otherwise.
  WSI_LOCAL bool _acceptableText(const char* what, const std::string& text) const;
  // Whether a header may be stored; logs the refusal otherwise.
  WSI_LOCAL bool _acceptableHeader(const std::string& name, const std::string& value) const;
  WSI_LOCAL void _sendHeadersOnce();
  // Ends the response: the header block if not yet sent, the last flush, the back end's end
  // step. Returns whether all of it succeeded and the client is still there.
  WSI_LOCAL bool _end();

  std::ostream* output_;
  Http::Status status_;
  std::string content_type_;
  std::string content_encoding_;
  bool content_length_known_;
  unsigned long content_length_;
  NameValueList headers_;
  bool head_request_;
  bool HeadersSent;
  bool ended_;
  bool client_gone_;
  DiscardBuf discard_buf_;
  std::ostream discard_;
};

// A stream buffer that reads at most a given number of bytes from another buffer and never asks
// it for more, so that a reader of a CGI request's posted data never waits for an end of file
// that the web server need not send.
class WSI_API CgiBodyBuf : public std::streambuf {
 public:
  // Reads from `source` (not owned), at most `limit` bytes.
  CgiBodyBuf(std::streambuf* source, std::uint64_t limit);
  virtual ~CgiBodyBuf();

  // False once the source ended or failed before `limit` bytes.
  bool complete() const;

 protected:
  virtual int_type underflow();
  virtual std::streamsize xsgetn(char* s, std::streamsize n);

 private:
  // Reads at most `n` of the bytes still due from the source into `s`; 0 at their end, or when
  // the source ended or failed before it (the data is short then).
  WSI_LOCAL std::streamsize _readSource(char* s, std::streamsize n);

  std::streambuf* source_;
  std::uint64_t remaining_;
  bool short_;
  char buffer_[8192];
};

// A CGI request whose posted data is the first CONTENT_LENGTH bytes of an input stream.
class WSI_API CgiStreamRequest : public CgiRequest {
 public:
  // `input` (not owned) outlives the request; only its stream buffer is read.
  CgiStreamRequest(const NameValueList& variables, std::istream& input);
  virtual ~CgiStreamRequest();

 protected:
  virtual bool _postedDataComplete() const;

 private:
  CgiBodyBuf body_buf_;
  std::istream body_;
};

// One CGI exchange: the request from an environment array ("NAME=value" texts, as `environ`) and
// the first CONTENT_LENGTH bytes of `input`, the response written to `output`. The caller owns
// all three (std::cin and std::cout in practice) and keeps them alive until the handle is
// destroyed, which ends a response that was not ended.
class WSI_API CgiHandle : public Handle {
 public:
  // `envp` is a null-terminated array (null is an empty environment); an entry without '=' is
  // skipped.
  CgiHandle(char** envp, std::istream& input, std::ostream& output);
  virtual ~CgiHandle();

  virtual wsi::Request& Request();
  virtual const wsi::Request& Request() const;
  virtual wsi::Response& Response();
  virtual const wsi::Response& Response() const;
  virtual void _dump(std::ostream& os) const;

  // The response with its CGI-only operation addHttpHeader().
  CgiResponse& cgiResponse();

 private:
  CgiStreamRequest request_;
  CgiResponse response_;
};

// The CGI variables of an environment array, in its order: each entry split at its first '='.
// Entries without '=' are skipped; a null array gives an empty list.
WSI_API NameValueList CgiEnvironment(char** envp);

}  // namespace wsi

#endif  // WSI_CGI_HANDLE_HPP
