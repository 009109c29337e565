// Reading a request's posted data in pieces for the form helpers.
#ifndef WSI_COMMON_WSIFORM_REQUEST_BODY_HPP
#define WSI_COMMON_WSIFORM_REQUEST_BODY_HPP

#include <cstddef>
#include <string>

#include <wsi/form_types.hpp>
#include <wsi/interface.hpp>

namespace wsi {
namespace form {

// Receives the posted data piece by piece. Returns false to stop reading (it then holds the
// reason).
class BodySink {
 public:
  virtual ~BodySink() {}
  virtual bool take(const char* data, std::size_t size) = 0;
};

// The sink that feeds a push parser (anything with feed(data, size) returning bool).
template <class Parser>
class ParserSink : public BodySink {
 public:
  explicit ParserSink(Parser& parser) : parser_(parser) {}
  bool take(const char* data, std::size_t size) { return parser_.feed(data, size); }

 private:
  Parser& parser_;
};

// Reads the posted data of `request` through beginRead() and gives it to `sink` in pieces. When
// the request announces a Content-Length, reads exactly that many bytes and fails with
// form_too_large above `max_body` before reading anything; a body that ends sooner is
// form_malformed. Without one, reads to the end of the stream, failing with form_too_large once
// more than `max_body` bytes came. A sink that stops yields form_refused (the caller knows why).
// `error` says what happened on every failure.
FormStatus readBody(Request& request, BodySink& sink, std::size_t max_body, std::string& error);

}  // namespace form
}  // namespace wsi

#endif  // WSI_COMMON_WSIFORM_REQUEST_BODY_HPP
