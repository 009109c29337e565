// URL-encoded form bodies (application/x-www-form-urlencoded): a push parser that takes the body
// in pieces of any size as it arrives, and a reader for a request's posted data.
#ifndef WSI_FORM_URLENCODED_HPP
#define WSI_FORM_URLENCODED_HPP

#include <cstddef>
#include <string>

#include <wsi/export.h>
#include <wsi/form_types.hpp>
#include <wsi/interface.hpp>

namespace wsi {

// Bounds on one URL-encoded body. A body that goes beyond one of them fails with form_too_large.
struct UrlencodedLimits {
  std::size_t max_body;   // bytes of the whole body; default 8 MiB
  std::size_t max_pairs;  // pairs kept; default 10,000
  std::size_t max_item;   // bytes of one name or one value as sent (encoded); default 1 MiB
  UrlencodedLimits() : max_body(8u << 20), max_pairs(10000), max_item(1u << 20) {}
};

// Parses a URL-encoded body fed in pieces, as HTML forms encode it: pairs are separated by '&',
// the first '=' of a pair splits name from value (a pair without '=' has an empty value), empty
// pieces ("&&") are skipped, '+' is a blank and "%HH" the byte HH (a '%' not followed by two
// hexadecimal digits stays as it is). Names and values are not trimmed.
class WSI_API UrlencodedParser {
 public:
  explicit UrlencodedParser(const UrlencodedLimits& limits = UrlencodedLimits());

  // Takes the next `size` bytes of the body. Returns false once the parser has failed (a limit
  // was hit); from then on it ignores its input and keeps its first error.
  bool feed(const char* data, std::size_t size);
  // Ends the body and stores its last pair. Returns false when the parser has failed.
  bool finish();

  // The pairs decoded so far, in arrival order.
  const NameValuePairs& pairs() const { return pairs_; }
  NameValuePairs& pairs() { return pairs_; }
  FormStatus status() const { return status_; }
  // Why the parser failed; empty while it has not.
  const std::string& error() const { return error_; }

 private:
  WSI_LOCAL bool fail(const std::string& message);
  WSI_LOCAL bool parse(const char* data, std::size_t size);
  WSI_LOCAL bool endPair();

  UrlencodedLimits limits_;
  NameValuePairs pairs_;
  std::string name_;   // the current pair's name as sent
  std::string value_;  // the current pair's value as sent
  bool in_value_;      // the current pair's '=' has been seen
  std::size_t body_bytes_;
  FormStatus status_;
  std::string error_;
};

// Reads the posted data of `request` (through beginRead(), never more than its Content-Length
// announces) and parses it into `pairs`. The Content-Type must be
// application/x-www-form-urlencoded (parameters allowed), else form_unsupported. A body shorter
// than its Content-Length is form_malformed. On any failure `pairs` is left empty and `error`
// says why.
WSI_API FormStatus readUrlencodedForm(Request& request, NameValuePairs& pairs, std::string& error,
                                      const UrlencodedLimits& limits = UrlencodedLimits());

}  // namespace wsi

#endif  // WSI_FORM_URLENCODED_HPP
