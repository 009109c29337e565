// What the form, upload and cookie helpers share: the list of name/value pairs they hand over and
// the outcome of reading a request's posted data.
#ifndef WSI_FORM_TYPES_HPP
#define WSI_FORM_TYPES_HPP

#include <string>
#include <utility>
#include <vector>

namespace wsi {

// Name/value pairs in the order in which they arrived. Names are kept as sent (case-sensitive),
// and a repeated name keeps every one of its values.
typedef std::vector<std::pair<std::string, std::string>> NameValuePairs;

// The outcome of reading a form from a request. Each value other than form_ok names the one
// error of that request; the helpers give a text that says what happened as well.
enum FormStatus {
  form_ok = 0,
  form_malformed,    // the body breaks its format (answer 400)
  form_too_large,    // a limit was hit (answer 413)
  form_unsupported,  // the request's Content-Type is not the one the helper reads (answer 415)
  form_refused,      // the host's handler refused a part
  form_failed        // reading the posted data or writing a temporary file failed (answer 500)
};

// The first value stored under `name` (compared case-sensitively) in `pairs`, or null.
inline const std::string* findValue(const NameValuePairs& pairs, const std::string& name) {
  for (NameValuePairs::const_iterator it = pairs.begin(); it != pairs.end(); ++it) {
    if (it->first == name) return &it->second;
  }
  return 0;
}

}  // namespace wsi

#endif  // WSI_FORM_TYPES_HPP
