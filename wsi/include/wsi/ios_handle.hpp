// The stream and file back ends: a request described by a configuration text, a response
// written as HTTP/1.1 text.
#ifndef WSI_IOS_HANDLE_HPP
#define WSI_IOS_HANDLE_HPP

#include <fstream>
#include <iosfwd>
#include <string>

#include <wsi/export.h>
#include <wsi/interface.hpp>

namespace wsi {

// A request read from a request-configuration text: one "name=value" line per server variable,
// "header.<name>=value" lines for headers. The posted data is a second stream, handed out
// unread.
class WSI_API IosRequest : public Request {
 public:
  explicit IosRequest(std::istream& postedData);
  virtual ~IosRequest();

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
  friend class IosHandle;

  bool _loadRequest(std::istream& config);
  WSI_LOCAL void _parseConfigLine(const std::string& line);
  WSI_LOCAL void _parseConfigVar(const std::string& name, const std::string& value);

  Http::MethodId method_;
  std::string http_url_;
  std::string url_;
  std::string query_string_;
  OrderedNameTable query_args_;
  OrderedNameTable headers_;
  NameTable variables_;
  std::istream* posted_data_;
  bool read_ended_;
};

// A response written to a stream as an HTTP/1.1 status line, header lines and a blank line,
// followed by the body. Lines end with a single line feed.
class WSI_API IosResponse : public Response {
 public:
  explicit IosResponse(std::ostream& output);
  // Ends a response that was not ended, as close() does.
  virtual ~IosResponse();

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

 private:
  // Writes the header block unless it was written already.
  WSI_LOCAL void _sendHeadersOnce();
  void _doSendHeaders();

  std::ostream* output_;
  Http::Status status_;
  std::string content_type_;
  std::string content_encoding_;
  bool content_length_known_;
  unsigned long content_length_;
  OrderedNameTable headers_;
  bool HeadersSent;
  bool ended_;
};

// One exchange over three streams that the caller owns and keeps alive until the handle is
// destroyed: the request configuration, the posted data and the response output.
class WSI_API IosHandle : public Handle {
 public:
  IosHandle(std::istream& config, std::istream& postedData, std::ostream& output);
  virtual ~IosHandle();

  virtual wsi::Request& Request();
  virtual const wsi::Request& Request() const;
  virtual wsi::Response& Response();
  virtual const wsi::Response& Response() const;
  virtual void _dump(std::ostream& os) const;

 private:
  // Reads the request from `config` and returns `output`: called between building the request
  // and building the response, so that nothing of the response exists while the request loads.
  WSI_LOCAL std::ostream& _loadRequestThen(std::istream& config, std::ostream& output);

  IosRequest request_;
  IosResponse response_;
};

// One exchange over three files that the handle opens and owns. The files are closed before the
// response is destroyed, so a response that was not ended before the handle is destroyed is
// lost: end it (endWrite() or close()) first.
class WSI_API FioHandle : public Handle {
 public:
  // Opens the request configuration and the posted data for reading and creates or empties
  // the response output. A file that cannot be opened leaves its stream failed.
  FioHandle(const char* configName, const char* postedDataName, const char* outputName);
  virtual ~FioHandle();

  virtual wsi::Request& Request();
  virtual const wsi::Request& Request() const;
  virtual wsi::Response& Response();
  virtual const wsi::Response& Response() const;
  virtual void _dump(std::ostream& os) const;

 private:
  std::string config_name_;
  std::string posted_data_name_;
  std::string output_name_;
  std::ifstream config_;
  std::ifstream posted_data_;
  std::ofstream output_;
  IosHandle handle_;
};

}  // namespace wsi

#endif  // WSI_IOS_HANDLE_HPP
