// The HTTP vocabulary, the response header rules, the logging set-up and the base classes of
// the object model.
#include <pthread.h>
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include <w3/w3.h>
#include <wsi/http.hpp>
#include <wsi/interface.hpp>
#include <wx/char_casing.hpp>
#include <wx/char_to_numeric.hpp>
#include <wx/log.hpp>

namespace wsi {
namespace {

typedef wx::char_casing<char, wx::language::english> Casing;

// When `text` begins with a word held as an upper-case and a lower-case spelling of equal length
// (each byte must equal the upper or the lower spelling's byte at its position), the byte after
// the word; otherwise null. Stops at the first mismatch, so it never reads past the text's end.
const char* SkipEitherCase(const char* text, const char* upper, const char* lower) {
  for (; *upper != '\0'; ++text, ++upper, ++lower)
    if (*text != *upper && *text != *lower) return nullptr;
  return text;
}

// Whether the whole of `text` is the word held as `upper` and `lower`, byte by byte in either
// spelling, with no character table.
bool MatchesEitherCase(const char* text, const char* upper, const char* lower) {
  const char* rest = SkipEitherCase(text, upper, lower);
  return rest != nullptr && *rest == '\0';
}

// Whether the header name `name` is the word held as `upper` and `lower`. The name is read up to
// its first NUL byte, as every name table reads names (docs/text-and-bytes.md): a name the rules
// pass on as an ordinary header must not be the content type to the response's own table.
bool IsHeaderName(const std::string& name, const char* upper, const char* lower) {
  return MatchesEitherCase(name.c_str(), upper, lower);
}

// Whether text byte `x` is word byte `w` under the upper-case table.
bool SameLetter(char x, char w) {
  return x == w || Casing::ascii_toupper_[static_cast<unsigned char>(x)] ==
                       Casing::ascii_toupper_[static_cast<unsigned char>(w)];
}

// Whether text byte `x` is the upper-case byte `u` or the lower-case byte `l`.
bool EitherCase(char x, char u, char l) {
  return x == u || x == l;
}

// The ';' or the end of the text that closes the parameter beginning at `p`.
const char* ParameterEnd(const char* p) {
  while (*p != '\0' && *p != ';')
    ++p;
  return p;
}

// Holds the logger's mutex for one scope.
class LogLock {
 public:
  explicit LogLock(wx::log::log& log) : mutex_(log.mutex) { pthread_mutex_lock(&mutex_); }
  ~LogLock() { pthread_mutex_unlock(&mutex_); }
  LogLock(const LogLock&) = delete;
  LogLock& operator=(const LogLock&) = delete;

 private:
  pthread_mutex_t& mutex_;
};

}  // namespace

// --- HTTP vocabulary ------------------------------------------------------------------------

namespace Http {

namespace {

// One known status and its reason phrase.
struct StatusText {
  int code;
  const char* text;
};

// Every known status, sorted by code for the binary search of StatusDesc. The phrasings are
// this library's own ("Multi-status", "Request Time Out", ...): existing hosts and clients match
// them byte for byte. At namespace scope, so that the table stays out of the dynamic interface.
constexpr StatusText kStatusTexts[] = {
    {-1, "Invalid Status"},
    {100, "Continue"},
    {101, "Switching Protocols"},
    {102, "Processing"},
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {203, "Non-Authoritative Information"},
    {204, "No Content"},
    {205, "Reset Content"},
    {206, "Partial Content"},
    {207, "Multi-status"},
    {300, "Multiple Choices"},
    {301, "Moved Permanently"},
    {302, "Moved Temporarily"},
    {303, "See Other"},
    {304, "Not Modified"},
    {305, "Use Proxy"},
    {307, "Temporary Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {402, "Payment Required"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {407, "Proxy Authentication Required"},
    {408, "Request Time Out"},
    {409, "Conflict"},
    {410, "Gone"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Request Entity Too Large"},
    {414, "Request URI Too Large"},
    {415, "Unsupported Media Type"},
    {416, "Requested Range Not Satisfiable"},
    {417, "Expectation Failed"},
    {422, "Unprocessable Entity"},
    {423, "Locked"},
    {424, "Failed Dependency"},
    {426, "Upgrade Required"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Time Out"},
    {505, "HTTP Version Not Supported"},
    {506, "Variant Also Varies"},
    {507, "Insufficient Storage"},
    {510, "Not Extended"},
};

// Whether `table` is sorted by strictly rising code: checked at compile time below, so that an
// entry added out of order cannot make a lookup miss.
template <std::size_t N>
constexpr bool RisingCodes(const StatusText (&table)[N]) {
  for (std::size_t i = 1; i < N; ++i)
    if (table[i - 1].code >= table[i].code) return false;
  return true;
}
static_assert(RisingCodes(kStatusTexts), "kStatusTexts must be sorted by code");

}  // namespace

// The reason phrase of `status`: a binary search of the table; "Unknown Status" for any code
// it does not hold.
template <wx::encoding::Encoding E>
const char* StatusDesc(Status status) {
  const int code = static_cast<int>(status);
  const StatusText* const end = kStatusTexts + sizeof kStatusTexts / sizeof kStatusTexts[0];
  const StatusText* const it = std::lower_bound(
      kStatusTexts, end, code, [](const StatusText& entry, int c) { return entry.code < c; });
  return it != end && it->code == code ? it->text : "Unknown Status";
}

namespace {

// The method names by id + 1. At namespace scope, not inside the exported template, so that the
// table stays out of the library's dynamic interface.
const char* const kMethodNames[] = {"INVALID", "GET",   "POST",    "HEAD",   "PUT",
                                    "DELETE",  "TRACE", "CONNECT", "OPTIONS"};

}  // namespace

template <wx::encoding::Encoding E>
const char* MethodNameOf(MethodId id) {
  const unsigned int slot = static_cast<unsigned int>(id) + 1u;
  return slot < sizeof kMethodNames / sizeof kMethodNames[0] ? kMethodNames[slot] : "UNKNOWN";
}

namespace {

// The method lookup of Encoding 0: letters compare through the upper-case table. The three short
// words are compared in place, the others with nocase_compare.
MethodId MethodIdByTable(const char* name) {
  const char* n = name;
  if (SameLetter(n[0], 'G') && SameLetter(n[1], 'E') && SameLetter(n[2], 'T') && n[3] == '\0')
    return Get;
  if (SameLetter(n[0], 'P') && SameLetter(n[1], 'O') && SameLetter(n[2], 'S') &&
      SameLetter(n[3], 'T') && n[4] == '\0')
    return Post;
  if (SameLetter(n[0], 'H') && SameLetter(n[1], 'E') && SameLetter(n[2], 'A') &&
      SameLetter(n[3], 'D') && n[4] == '\0')
    return Head;
  if (Casing::nocase_compare(name, "PUT") == 0) return Put;
  if (Casing::nocase_compare(name, "DELETE") == 0) return Delete;
  if (Casing::nocase_compare(name, "TRACE") == 0) return Trace;
  if (Casing::nocase_compare(name, "CONNECT") == 0) return Connect;
  if (Casing::nocase_compare(name, "OPTIONS") == 0) return Options;
  return InvalidMethod;
}

// The method lookup of Encoding 3: no character table; each byte must equal the upper- or the
// lower-case spelling's byte. The three short words are compared in place, the others with
// MatchesEitherCase.
MethodId MethodIdBySpellings(const char* name) {
  const char* n = name;
  if (EitherCase(n[0], 'G', 'g') && EitherCase(n[1], 'E', 'e') && EitherCase(n[2], 'T', 't') &&
      n[3] == '\0')
    return Get;
  if (EitherCase(n[0], 'P', 'p') && EitherCase(n[1], 'O', 'o') && EitherCase(n[2], 'S', 's') &&
      EitherCase(n[3], 'T', 't') && n[4] == '\0')
    return Post;
  if (EitherCase(n[0], 'H', 'h') && EitherCase(n[1], 'E', 'e') && EitherCase(n[2], 'A', 'a') &&
      EitherCase(n[3], 'D', 'd') && n[4] == '\0')
    return Head;
  if (MatchesEitherCase(name, "PUT", "put")) return Put;
  if (MatchesEitherCase(name, "DELETE", "delete")) return Delete;
  if (MatchesEitherCase(name, "TRACE", "trace")) return Trace;
  if (MatchesEitherCase(name, "CONNECT", "connect")) return Connect;
  if (MatchesEitherCase(name, "OPTIONS", "options")) return Options;
  return InvalidMethod;
}

}  // namespace

template <wx::encoding::Encoding E>
MethodId MethodIdOf(const char* name) {
  return E == wx::encoding::connector ? MethodIdBySpellings(name) : MethodIdByTable(name);
}

template const char* StatusDesc<wx::encoding::host>(Status);
template const char* StatusDesc<wx::encoding::connector>(Status);
template const char* MethodNameOf<wx::encoding::host>(MethodId);
template const char* MethodNameOf<wx::encoding::connector>(MethodId);
template MethodId MethodIdOf<wx::encoding::host>(const char*);
template MethodId MethodIdOf<wx::encoding::connector>(const char*);

}  // namespace Http

// --- Handle and the process-wide logger ------------------------------------------------------

wx::log::log* Handle::plog_ = nullptr;
pthread_once_t Handle::init_log_once_ = PTHREAD_ONCE_INIT;

Handle::Handle() {
  pthread_once(&init_log_once_, _initLogOnce);
}

Handle::~Handle() {}

void Handle::_initLogOnce() {
  if (plog_ != nullptr) return;
  plog_ = new wx::log::log("WSI");

  char file_name[4097];
  file_name[0] = '\0';
  W3LOG_GetQorvaLogFileName(file_name, sizeof file_name, "qv_wsi.log");
  file_name[sizeof file_name - 1] = '\0';
  {
    LogLock lock(*plog_);
    if (file_name[0] != '\0')
      plog_->file_name = file_name;
    else
      plog_->_setTempFileName(nullptr);
  }
  plog_->enabled = true;

  // The value may fill all 256 bytes without a terminating zero; the spare byte ends it.
  char level[257];
  W3CFG_Initialize();
  if (W3CFG_GetQwebValue("WSI_LOG", level, 256) == 0) return;
  level[256] = '\0';
  std::size_t length = std::strlen(level);
  while (length > 0 && std::isspace(static_cast<unsigned char>(level[length - 1])))
    --length;
  level[length] = '\0';
  plog_->level = wx::log::log::LevelOf(level);
}

void Handle::closeLog() {
  if (plog_ == nullptr) return;
  delete plog_;
  plog_ = nullptr;
  init_log_once_ = PTHREAD_ONCE_INIT;
}

// --- Request and Response ---------------------------------------------------------------------

Request::Request() : plog(Handle::plog_), InitFail(true) {}

Request::~Request() {}

Response::Response() : plog(Handle::plog_), InitFail(true) {}

Response::~Response() {}

template <wx::encoding::Encoding E>
void Response::_setHttpHeaderHelper(const std::string& name, const std::string& value) {
  if (IsHeaderName(name, "CONTENT-TYPE", "content-type")) {
    std::string type;
    std::string encoding;
    if (_extractContentEncoding<E>(value, type, encoding)) {
      setContentType(type);
      setContentEncoding(encoding);
    } else {
      // A type without parameters also clears an encoding set earlier.
      setContentType(value);
      setContentEncoding(std::string());
    }
    return;
  }
  if (IsHeaderName(name, "CONTENT-LENGTH", "content-length")) {
    // Decimal digits only; anything else drops the header silently. A longer number wraps
    // modulo 2^64, as it always has.
    std::uint64_t length = 0;
    for (std::string::size_type i = 0; i < value.size(); ++i) {
      const signed char digit =
          wx::basic_char_to_numeric<char, wx::encoding::host>::tonum_[static_cast<unsigned char>(
              value[i])];
      if (digit < 0 || digit > 9) return;
      length = length * 10 + static_cast<std::uint64_t>(digit);
    }
    setContentLength(length);
    return;
  }
  _setHttpHeader(name, value);
}

template <wx::encoding::Encoding E>
bool Response::_extractContentEncoding(const std::string& value, std::string& type,
                                       std::string& encoding) {
  const std::string::size_type semicolon = value.find(';');
  if (semicolon == std::string::npos) return false;
  type.assign(value, 0, semicolon);
  encoding.clear();

  // From here on the value is walked as a NUL-terminated text. `mark` is the ';' that opens the
  // segment that may be copied back into the type; `cursor` is the next parameter.
  const char* mark = value.c_str() + semicolon;
  const char* cursor = mark + 1;
  while (*cursor != '\0') {
    while (*cursor == ' ')
      ++cursor;
    const char* close;
    const char* after = SkipEitherCase(cursor, "CHARSET", "charset");
    if (after != nullptr) {
      while (*after == ' ')
        ++after;
    }
    if (after != nullptr && *after == '=') {
      // The charset value, verbatim up to the next ';'; the last one given wins.
      close = ParameterEnd(after + 1);
      encoding.assign(after + 1, close);
    } else {
      // Any other parameter stays in the type with its ';' and spacing.
      close = ParameterEnd(cursor);
      type.append(mark, close);
    }
    mark = close;
    cursor = *close == ';' ? close + 1 : close;
  }
  return true;
}

template void Response::_setHttpHeaderHelper<wx::encoding::host>(const std::string&,
                                                                 const std::string&);
template void Response::_setHttpHeaderHelper<wx::encoding::connector>(const std::string&,
                                                                      const std::string&);
template bool Response::_extractContentEncoding<wx::encoding::host>(const std::string&,
                                                                    std::string&, std::string&);
template bool Response::_extractContentEncoding<wx::encoding::connector>(const std::string&,
                                                                         std::string&,
                                                                         std::string&);

}  // namespace wsi
