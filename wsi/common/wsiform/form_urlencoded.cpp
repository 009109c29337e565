#include <cstring>

#include <wsi/form_urlencoded.hpp>
#include <wx/url_decoder.hpp>
#include "wsi/common/wsiform/header_params.hpp"
#include "wsi/common/wsiform/request_body.hpp"

namespace wsi {

namespace {

// Decodes a name or value as HTML forms encode it ('+' is a blank).
std::string formDecoded(const std::string& raw) {
  std::string out;
  wx::url_plus_decoder<wx::encoding::host>()(out, raw.data(), raw.size());
  return out;
}

}  // namespace

UrlencodedParser::UrlencodedParser(const UrlencodedLimits& limits)
    : limits_(limits), in_value_(false), body_bytes_(0), status_(form_ok) {}

// Records the first failure; returns false so that callers can return its result.
bool UrlencodedParser::fail(const std::string& message) {
  if (status_ == form_ok) {
    status_ = form_too_large;
    error_ = message;
  }
  return false;
}

// Stores the current pair, if it is not empty, and starts the next one.
bool UrlencodedParser::endPair() {
  if (name_.empty() && !in_value_) return true;  // an empty piece: "&&", or a leading '&'
  if (pairs_.size() == limits_.max_pairs)
    return fail("the form holds more than " + std::to_string(limits_.max_pairs) + " pairs");
  pairs_.push_back(std::make_pair(formDecoded(name_), formDecoded(value_)));
  name_.clear();
  value_.clear();
  in_value_ = false;
  return true;
}

bool UrlencodedParser::feed(const char* data, std::size_t size) {
  if (status_ != form_ok) return false;
  // The bytes within the body limit are parsed first, so that the error does not depend on how
  // the body was cut into pieces.
  const bool over = size > limits_.max_body - body_bytes_;
  if (over) size = limits_.max_body - body_bytes_;
  body_bytes_ += size;
  if (!parse(data, size)) return false;
  if (over)
    return fail("the form body is larger than the limit of " + std::to_string(limits_.max_body) +
                " bytes");
  return true;
}

// Takes `size` bytes of the body that lie within its limit.
bool UrlencodedParser::parse(const char* data, std::size_t size) {
  const char* end = data + size;
  while (data < end) {
    // The current item runs to the next separator: '&' always, '=' while in the name.
    const char* amp = static_cast<const char*>(std::memchr(data, '&', end - data));
    const char* stop = amp != 0 ? amp : end;
    if (!in_value_) {
      const char* eq = static_cast<const char*>(std::memchr(data, '=', stop - data));
      if (eq != 0) stop = eq;
    }
    std::string& item = in_value_ ? value_ : name_;
    if (static_cast<std::size_t>(stop - data) > limits_.max_item - item.size())
      return fail(std::string("a ") + (in_value_ ? "value" : "name") +
                  " of the form is longer than " + std::to_string(limits_.max_item) + " bytes");
    item.append(data, stop);
    if (stop == end) break;
    data = stop + 1;
    if (*stop == '=') {
      in_value_ = true;
    } else if (!endPair()) {
      return false;
    }
  }
  return true;
}

bool UrlencodedParser::finish() {
  if (status_ != form_ok) return false;
  return endPair();
}

FormStatus readUrlencodedForm(Request& request, NameValuePairs& pairs, std::string& error,
                              const UrlencodedLimits& limits) {
  pairs.clear();
  const std::string* type = request.HttpHeaders("Content-Type");
  if (type == 0 || !form::hasMediaType(*type, "application/x-www-form-urlencoded")) {
    error = "the request's Content-Type is '" + (type != 0 ? *type : std::string()) +
            "', not application/x-www-form-urlencoded";
    return form_unsupported;
  }
  UrlencodedParser parser(limits);
  form::ParserSink<UrlencodedParser> sink(parser);
  FormStatus status = form::readBody(request, sink, limits.max_body, error);
  if (status == form_ok && !parser.finish()) status = form_refused;
  if (status == form_refused) {
    status = parser.status();
    error = parser.error();
  }
  if (status == form_ok) pairs.swap(parser.pairs());
  return status;
}

}  // namespace wsi
