// Multipart bodies (multipart/form-data): a streaming push parser that takes the body in pieces of
// any size and hands each part's headers and data, in chunks, to the host's handler, which
// decides where the data goes.
#ifndef WSI_MULTIPART_HPP
#define WSI_MULTIPART_HPP

#include <cstddef>
#include <string>

#include <wsi/export.h>
#include <wsi/form_types.hpp>

namespace wsi {

// Bounds on one multipart body. Hitting one fails the body with form_too_large.
struct MultipartLimits {
  std::size_t max_parts;         // parts in the body; default 1,000
  std::size_t max_header_bytes;  // bytes of one part's header block; default 8 KiB
  unsigned long long max_body;   // bytes of the whole body; default 64 MiB
  MultipartLimits() : max_parts(1000), max_header_bytes(8 * 1024), max_body(64ull << 20) {}
};

// The headers of one part.
struct MultipartPart {
  std::string name;          // the Content-Disposition name parameter, as sent
  std::string filename;      // filename* decoded when given in UTF-8 or ISO-8859-1, else filename
  bool has_filename;         // the part carries a filename or filename* parameter (a file)
  std::string content_type;  // the part's Content-Type as sent, empty when absent
  NameValuePairs headers;    // every header line, name and value as sent (value trimmed)
  MultipartPart() : has_filename(false) {}
};

// Receives the parts of a body in order: partBegin, any number of partData, partEnd. A function
// that returns false stops the parser, which then fails with form_refused.
class WSI_API MultipartHandler {
 public:
  virtual ~MultipartHandler();
  virtual bool partBegin(const MultipartPart& part) = 0;
  // The next `size` bytes (never 0) of the current part's data.
  virtual bool partData(const char* data, std::size_t size) = 0;
  virtual bool partEnd() = 0;
};

// Parses one multipart body. The body is a preamble (ignored), then for each part the delimiter
// "--" boundary (at the start of the body or after CR LF), up to 256 blanks and tabs, CR LF, the
// part's header lines ended by an empty line (each line ended by CR LF) and its data; then the
// close delimiter "--" boundary "--" and an epilogue (ignored). The CR LF before a delimiter
// belongs to the delimiter, not to the data; "--" boundary followed by anything else is no
// delimiter and stays data. Cost: linear in the body whatever it holds (the
// delimiter is found with memchr on its CR and a bounded compare); memory: one part's header
// block at most.
class WSI_API MultipartParser {
 public:
  // `boundary` must be 1 to 70 bytes (see multipartBoundary); `handler` must outlive the parser.
  MultipartParser(const std::string& boundary, MultipartHandler& handler,
                  const MultipartLimits& limits = MultipartLimits());

  // Takes the next `size` bytes of the body, in pieces of any size (one byte at a time works).
  // Returns false once the parser has failed; from then on it ignores its input and keeps its
  // first error.
  bool feed(const char* data, std::size_t size);
  // Ends the body. Returns false when the parser has failed or the close delimiter never came
  // (form_malformed).
  bool finish();

  FormStatus status() const { return status_; }
  // Why the parser failed; empty while it has not.
  const std::string& error() const { return error_; }
  // The parts begun so far.
  std::size_t partCount() const { return parts_; }

 private:
  enum State { preamble, after_delimiter, headers, data, epilogue };

  WSI_LOCAL bool fail(FormStatus status, const std::string& message);
  WSI_LOCAL bool parse(const char* p, std::size_t size);
  WSI_LOCAL const char* scan(const char* p, const char* end);
  WSI_LOCAL const char* delimiterFound(const char* p);
  WSI_LOCAL const char* afterDelimiter(const char* p, const char* end);
  WSI_LOCAL const char* notDelimiter(const char* p);
  WSI_LOCAL const char* headerBytes(const char* p, const char* end);
  WSI_LOCAL bool beginPart();

  std::string delimiter_;  // CR LF "--" boundary
  MultipartHandler& handler_;
  MultipartLimits limits_;
  State state_;
  std::size_t matched_;    // bytes of the delimiter matched at the end of the last piece
  bool from_data_;         // the delimiter being looked at ended a part's data
  std::string lookahead_;  // the bytes after that delimiter: "-", or blanks and a CR
  std::string header_block_;
  MultipartPart part_;     // the current part's headers, its storage reused part after part
  NameValuePairs params_;  // scratch space for Content-Disposition's parameters
  std::size_t parts_;
  unsigned long long body_bytes_;
  FormStatus status_;
  std::string error_;
};

// The boundary parameter of a multipart Content-Type value (any multipart/ subtype), quoted or
// not. False, with `error` saying why, when the type is not multipart, the boundary is missing,
// given twice, empty, longer than 70 bytes, holds a byte other than letters, digits and
// '()+_,-./:=? or ends with a blank. Linear in the value whatever it holds.
WSI_API bool multipartBoundary(const std::string& content_type, std::string& boundary,
                               std::string& error);

// Reads one part's header block (lines ended by CR LF, without the empty line) into `part`,
// replacing what it held: every line into headers, Content-Disposition's name, filename and
// filename* (RFC 8187: charset'language'percent-encoded), Content-Type. A line that continues the
// previous one (it begins with a blank or tab) is joined to it. False, with `error`, for a line
// without ':' or a Content-Disposition whose quoted text is not closed.
WSI_API bool parsePartHeaders(const std::string& block, MultipartPart& part, std::string& error);

}  // namespace wsi

#endif  // WSI_MULTIPART_HPP
