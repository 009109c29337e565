#include <string.h>
#include <algorithm>
#include <cstring>

#include <wsi/multipart.hpp>
#include <wx/url_decoder.hpp>
#include "wsi/common/wsiform/header_params.hpp"

namespace wsi {

namespace {

const std::size_t kMaxBoundary = 70;
const std::size_t kMaxPadding = 256;

// Whether `c` may stand in a boundary: letters, digits and '()+_,-./:=? and the blank.
bool isBoundaryByte(unsigned char c) {
  if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) return true;
  return std::strchr("'()+_,-./:=? ", c) != 0 && c != '\0';
}

// `text` (ISO-8859-1) in UTF-8.
std::string latin1ToUtf8(const std::string& text) {
  std::string out;
  for (std::string::size_type i = 0; i < text.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

// Decodes an extended parameter value (charset'language'percent-encoded). False, leaving `out`
// alone, when its form is wrong or its charset is neither UTF-8 nor ISO-8859-1.
bool decodeExtValue(const std::string& value, std::string& out) {
  const std::string::size_type first = value.find('\'');
  if (first == std::string::npos) return false;
  const std::string::size_type second = value.find('\'', first + 1);
  if (second == std::string::npos) return false;
  const std::string charset = value.substr(0, first);
  const bool utf8 = form::equalNoCase(charset, "UTF-8");
  if (!utf8 && !form::equalNoCase(charset, "ISO-8859-1")) return false;
  std::string decoded;
  wx::basic_url_decoder<false, wx::encoding::host>()(decoded, value.data() + second + 1,
                                                     value.size() - second - 1);
  out = utf8 ? decoded : latin1ToUtf8(decoded);
  return true;
}

// Takes the parameters of a Content-Disposition value into `part`; `params` is scratch space.
bool readDisposition(const std::string& value, MultipartPart& part, NameValuePairs& params,
                     std::string& error) {
  std::string word;
  if (!form::splitParams(value, word, params)) {
    error = "the part's Content-Disposition holds a quoted text that is not closed";
    return false;
  }
  bool extended = false;
  for (NameValuePairs::const_iterator it = params.begin(); it != params.end(); ++it) {
    if (it->first == "name") {
      part.name = it->second;
    } else if (it->first == "filename") {
      part.has_filename = true;
      if (!extended) part.filename = it->second;
    } else if (it->first == "filename*") {
      part.has_filename = true;
      extended = decodeExtValue(it->second, part.filename) || extended;
    }
  }
  return true;
}

// Reads a part's header block [block, block + size) into `part`, reusing its storage;
// `params` is scratch space. False, with `error`, as parsePartHeaders says.
bool readPartHeaders(const char* block, std::size_t size, MultipartPart& part,
                     NameValuePairs& params, std::string& error) {
  part.name.clear();
  part.filename.clear();
  part.has_filename = false;
  part.content_type.clear();
  std::size_t count = 0;  // entries of part.headers in use; the others are reused, then dropped
  for (std::size_t pos = 0; pos < size;) {
    const char* found = static_cast<const char*>(::memmem(block + pos, size - pos, "\r\n", 2));
    const std::size_t end = found != 0 ? static_cast<std::size_t>(found - block) : size;
    if (form::isBlank(block[pos]) && count > 0) {
      std::string& value = part.headers[count - 1].second;
      value += ' ';
      value.append(block + pos, end - pos);
    } else {
      const void* colon = std::memchr(block + pos, ':', end - pos);
      if (colon == 0) {
        error = "a part's header line holds no ':'";
        return false;
      }
      const std::size_t at = static_cast<std::size_t>(static_cast<const char*>(colon) - block);
      if (count == part.headers.size()) part.headers.resize(count + 1);
      part.headers[count].first.assign(block + pos, at - pos);
      part.headers[count++].second.assign(block + at + 1, end - at - 1);
    }
    pos = end + 2;
  }
  part.headers.resize(count);
  for (NameValuePairs::iterator it = part.headers.begin(); it != part.headers.end(); ++it) {
    std::string& value = it->second;
    form::trimInPlace(value);
    if (form::equalNoCase(it->first, "Content-Disposition")) {
      if (!readDisposition(value, part, params, error)) return false;
    } else if (form::equalNoCase(it->first, "Content-Type")) {
      part.content_type = value;
    }
  }
  return true;
}

}  // namespace

MultipartHandler::~MultipartHandler() {}

bool multipartBoundary(const std::string& content_type, std::string& boundary, std::string& error) {
  std::string word;
  NameValuePairs params;
  if (!form::splitParams(content_type, word, params)) {
    error = "the Content-Type holds a quoted text that is not closed";
    return false;
  }
  if (word.compare(0, 10, "multipart/") != 0) {
    error = "the Content-Type '" + word + "' is not a multipart type";
    return false;
  }
  const std::string* found = 0;
  for (NameValuePairs::const_iterator it = params.begin(); it != params.end(); ++it) {
    if (it->first != "boundary") continue;
    if (found != 0) {
      error = "the Content-Type gives the boundary parameter more than once";
      return false;
    }
    found = &it->second;
  }
  if (found == 0 || found->empty()) {
    error = "the Content-Type gives no boundary";
    return false;
  }
  if (found->size() > kMaxBoundary) {
    error = "the boundary is longer than 70 bytes";
    return false;
  }
  for (std::string::size_type i = 0; i < found->size(); ++i) {
    if (!isBoundaryByte(static_cast<unsigned char>((*found)[i]))) {
      error = "the boundary holds a byte that a boundary may not hold";
      return false;
    }
  }
  if ((*found)[found->size() - 1] == ' ') {
    error = "the boundary ends with a blank";
    return false;
  }
  boundary = *found;
  return true;
}

bool parsePartHeaders(const std::string& block, MultipartPart& part, std::string& error) {
  NameValuePairs params;
  return readPartHeaders(block.data(), block.size(), part, params, error);
}

MultipartParser::MultipartParser(const std::string& boundary, MultipartHandler& handler,
                                 const MultipartLimits& limits)
    : delimiter_("\r\n--" + boundary),
      handler_(handler),
      limits_(limits),
      state_(preamble),
      matched_(2),  // the start of the body stands where a CR LF would
      from_data_(false),
      parts_(0),
      body_bytes_(0),
      status_(form_ok) {}

// Records the first failure; returns false so that callers can return its result.
bool MultipartParser::fail(FormStatus status, const std::string& message) {
  if (status_ == form_ok) {
    status_ = status;
    error_ = message;
  }
  return false;
}

// Scans [p, end) for the delimiter, giving the bytes before it to the handler in the data
// state. Returns the position after the delimiter (state after_delimiter: what follows decides
// whether it is one), `end` when it did not complete in this piece (a prefix at the end is
// remembered in matched_), or null when the handler refused. The delimiter holds a CR only as
// its first byte, so after a failed compare at one CR the next candidate is the next CR: every
// byte is looked at a bounded number of times.
const char* MultipartParser::scan(const char* p, const char* end) {
  const bool deliver = state_ == data;
  const char* delim = delimiter_.data();
  const std::size_t length = delimiter_.size();
  if (matched_ > 0) {
    while (matched_ < length && p < end && *p == delim[matched_]) {
      ++matched_;
      ++p;
    }
    if (p == end && matched_ < length) return end;
    const std::size_t matched = matched_;
    matched_ = 0;
    if (matched == length) return delimiterFound(p);
    // What looked like a delimiter was data.
    if (deliver && !handler_.partData(delim, matched)) return 0;
  }
  const char* start = p;
  for (;;) {
    const char* cr = static_cast<const char*>(std::memchr(p, '\r', end - p));
    if (cr == 0) {
      if (deliver && end > start && !handler_.partData(start, end - start)) return 0;
      return end;
    }
    const std::size_t available = std::min<std::size_t>(length, end - cr);
    if (std::memcmp(cr, delim, available) == 0) {
      if (deliver && cr > start && !handler_.partData(start, cr - start)) return 0;
      if (available == length) return delimiterFound(cr + length);
      matched_ = available;
      return end;
    }
    p = cr + 1;
  }
}

// Notes that a delimiter ended just before `p`; what follows it decides.
const char* MultipartParser::delimiterFound(const char* p) {
  from_data_ = state_ == data;
  state_ = after_delimiter;
  lookahead_.clear();
  return p;
}

// Reads what follows a delimiter: "--" (the close delimiter), or blanks and tabs, then CR LF
// (the next part). Anything else means that the bytes were no delimiter: they go back to the
// data (or the preamble) and scanning goes on with the byte that decided. Returns the position
// after the bytes it took, or null on failure.
const char* MultipartParser::afterDelimiter(const char* p, const char* end) {
  for (; p < end; ++p) {
    const char c = *p;
    const bool first = lookahead_.empty();
    const char last = first ? '\0' : lookahead_[lookahead_.size() - 1];
    if (c == '-' && (first || (last == '-' && lookahead_.size() == 1))) {
      if (first) {
        lookahead_ += c;
        continue;
      }
      state_ = epilogue;
      return from_data_ && !handler_.partEnd() ? 0 : p + 1;
    }
    if (form::isBlank(c) && (first || form::isBlank(last))) {
      if (lookahead_.size() == kMaxPadding) {
        fail(form_malformed, "a boundary line holds more than 256 blanks");
        return 0;
      }
      lookahead_ += c;
      continue;
    }
    if (c == '\r' && (first || form::isBlank(last))) {
      lookahead_ += c;
      continue;
    }
    if (c == '\n' && last == '\r') return beginPart() ? p + 1 : 0;
    return notDelimiter(p);
  }
  return end;
}

// The delimiter just read and its look-ahead were data (or preamble): hands them back and
// resumes scanning at `p`. The look-ahead may end with a CR, but `p` is not a line feed, so no
// delimiter starts there.
const char* MultipartParser::notDelimiter(const char* p) {
  state_ = from_data_ ? data : preamble;
  if (!from_data_) return p;
  if (!handler_.partData(delimiter_.data(), delimiter_.size())) return 0;
  if (!lookahead_.empty() && !handler_.partData(lookahead_.data(), lookahead_.size())) return 0;
  return p;
}

// Starts the next part: counts it and clears its header block.
bool MultipartParser::beginPart() {
  if (from_data_ && !handler_.partEnd())
    return fail(form_refused, "the host refused the end of part " + std::to_string(parts_));
  if (parts_ == limits_.max_parts)
    return fail(form_too_large,
                "the body holds more than " + std::to_string(limits_.max_parts) + " parts");
  ++parts_;
  header_block_.assign("\r\n");  // so that a part without headers ends its block at once
  state_ = headers;
  return true;
}

// Collects header bytes until the empty line, then hands the part's headers to the handler.
// Only the bytes up to the empty line are copied, so parts with small headers cost little
// whatever the piece size. Returns the position after the bytes it took, or null on failure.
const char* MultipartParser::headerBytes(const char* p, const char* end) {
  static const char kEmptyLine[] = "\r\n\r\n";
  const std::size_t limit = limits_.max_header_bytes + 4;  // the block, its "\r\n\r\n" and the lead
  const std::size_t old_size = header_block_.size();
  const std::size_t take = std::min<std::size_t>(end - p, limit - std::min(limit, old_size));
  // Where the empty line ends in this piece: it may begin in the bytes kept so far.
  std::size_t through = 0;
  for (std::size_t kept = 3; kept >= 1 && through == 0; --kept) {
    if (old_size >= kept && take >= 4 - kept &&
        header_block_.compare(old_size - kept, kept, kEmptyLine, kept) == 0 &&
        std::memcmp(p, kEmptyLine + kept, 4 - kept) == 0)
      through = 4 - kept;
  }
  if (through == 0) {
    const void* found = ::memmem(p, take, kEmptyLine, 4);
    if (found != 0) through = static_cast<std::size_t>(static_cast<const char*>(found) - p) + 4;
  }
  if (through == 0) {
    header_block_.append(p, take);
    if (header_block_.size() < limit) return p + take;
    fail(form_too_large, "the header block of part " + std::to_string(parts_) + " is longer than " +
                             std::to_string(limits_.max_header_bytes) + " bytes");
    return 0;
  }
  header_block_.append(p, through);
  const std::size_t lines = header_block_.size() - 4;  // the lead CR LF and the header lines
  std::string error;
  if (!readPartHeaders(header_block_.data() + 2, lines > 2 ? lines - 2 : 0, part_, params_,
                       error)) {
    fail(form_malformed, error + " (part " + std::to_string(parts_) + ")");
    return 0;
  }
  header_block_.clear();
  state_ = data;
  matched_ = 0;
  if (!handler_.partBegin(part_)) return 0;
  return p + through;
}

bool MultipartParser::feed(const char* p, std::size_t size) {
  if (status_ != form_ok) return false;
  // The bytes within the body limit are parsed first, so that the error does not depend on how
  // the body was cut into pieces.
  const bool over = size > limits_.max_body - body_bytes_;
  if (over) size = static_cast<std::size_t>(limits_.max_body - body_bytes_);
  body_bytes_ += size;
  if (!parse(p, size)) return false;
  if (over)
    return fail(form_too_large, "the body is larger than the limit of " +
                                    std::to_string(limits_.max_body) + " bytes");
  return true;
}

// Takes `size` bytes of the body that lie within its limit.
bool MultipartParser::parse(const char* p, std::size_t size) {
  const char* end = p + size;
  while (p != 0 && p < end) {
    if (state_ == epilogue) return true;  // after the close delimiter everything is ignored
    if (state_ == headers) {
      p = headerBytes(p, end);
    } else if (state_ == after_delimiter) {
      p = afterDelimiter(p, end);
    } else {
      p = scan(p, end);
    }
  }
  if (p == 0) fail(form_refused, "the host refused part " + std::to_string(parts_));
  return status_ == form_ok;
}

bool MultipartParser::finish() {
  if (status_ != form_ok) return false;
  if (state_ == epilogue) return true;
  if (state_ == preamble)
    return fail(form_malformed,
                "the body holds no boundary line \"--" + delimiter_.substr(4) + "\"");
  if (state_ == headers)
    return fail(form_malformed,
                "the body ended inside the header block of part " + std::to_string(parts_));
  return fail(form_malformed, "the body ended inside part " + std::to_string(parts_) +
                                  ", before its closing boundary");
}

}  // namespace wsi
