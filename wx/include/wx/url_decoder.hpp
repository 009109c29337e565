// Percent-decoders of the utility library.
#ifndef WX_URL_DECODER_HPP
#define WX_URL_DECODER_HPP

#include <string>

#include <wx/encoding.hpp>
#include <wx/export.hpp>

namespace wx {

// Decodes URL escapes. "%" followed by two hexadecimal digits (either case) becomes the byte of
// that value; with Plus, '+' becomes a blank. A '%' that is not followed by two hexadecimal
// digits within the length is kept as it is and decoding goes on with the byte after it, so "%",
// "%4" and "%G1" stay as they are and "%%41" becomes "%A". Encoding 3 decodes exactly as
// Encoding 0. Instantiated for every combination of Plus and Encoding 0 and 3.
template <bool Plus, encoding::Encoding E>
struct WX_API basic_url_decoder {
  // Appends the decoding of exactly `length` bytes at `text` to `out`. `text` may hold NUL
  // bytes and need not be terminated; it may be null only when `length` is 0.
  void operator()(std::string& out, const char* text, unsigned long length) const;
};

template <encoding::Encoding E>
using url_plus_decoder = basic_url_decoder<true, E>;

extern template struct basic_url_decoder<true, encoding::host>;
extern template struct basic_url_decoder<false, encoding::host>;
extern template struct basic_url_decoder<true, encoding::connector>;
extern template struct basic_url_decoder<false, encoding::connector>;

}  // namespace wx

#endif  // WX_URL_DECODER_HPP
