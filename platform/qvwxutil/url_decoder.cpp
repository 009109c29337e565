// Percent-decoders of the utility library.
#include <wx/char_to_numeric.hpp>
#include <wx/url_decoder.hpp>

namespace wx {
namespace {

// The value of hexadecimal digit `c` (either case), or -1 when it is none.
int hexValue(char c) {
  const signed char v =
      basic_char_to_numeric<char, encoding::host>::tonum_[static_cast<unsigned char>(c)];
  return v >= 0 && v < 16 ? v : -1;
}

// Whether byte `c` needs decoding rather than copying.
template <bool Plus>
bool isSpecial(char c) {
  return c == '%' || (Plus && c == '+');
}

}  // namespace

template <bool Plus, encoding::Encoding E>
void basic_url_decoder<Plus, E>::operator()(std::string& out, const char* text,
                                            unsigned long length) const {
  if (length == 0) return;
  out.reserve(out.size() + length);
  const char* p = text;
  const char* const end = text + length;
  while (p != end) {
    // Copy the run of plain bytes in one go.
    const char* run = p;
    while (p != end && !isSpecial<Plus>(*p))
      ++p;
    out.append(run, p);
    if (p == end) break;
    if (*p == '+') {
      out.push_back(' ');
      ++p;
      continue;
    }
    // A '%': decode it when two hexadecimal digits follow within the length, otherwise keep it
    // and go on with the byte after it.
    const int high = end - p >= 3 ? hexValue(p[1]) : -1;
    const int low = high >= 0 ? hexValue(p[2]) : -1;
    if (low >= 0) {
      out.push_back(static_cast<char>(high * 16 + low));
      p += 3;
    } else {
      out.push_back('%');
      ++p;
    }
  }
}

template struct basic_url_decoder<true, encoding::host>;
template struct basic_url_decoder<false, encoding::host>;
template struct basic_url_decoder<true, encoding::connector>;
template struct basic_url_decoder<false, encoding::connector>;

}  // namespace wx
