// The context behind the C entry points: the specification grammar, the three handle getters and
// the entry points themselves.
#include <algorithm>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include <wsi/context.hpp>
#include <wsi/ios_handle.hpp>
#include <wsi/wsi.h>
#include <wx/char_casing.hpp>
#include <wx/char_to_numeric.hpp>
#include <wx/ptr_len_pair.hpp>

namespace wsi {

// Narrows a (pointer, length) view by the C-locale white space at both ends.
struct StripMapping {
  void operator()(const char*& ptr, unsigned long& len) const {
    const char* end = ptr + len;
    wx::space_stripper()(ptr, end);
    len = static_cast<unsigned long>(end - ptr);
  }
};

namespace {

// A piece of an argument text with its surrounding white space stripped.
typedef wx::mapped_ptr_len_pair<const char, unsigned long, StripMapping> StrippedText;

}  // namespace

// One index argument: a position in the caller's pointer array, read as an unsigned decimal
// number. The arithmetic wraps silently modulo 2 to the 64th, as it always has: callers never
// write such indexes, and a check would change which pointer a long-standing string selects.
struct TextToIndex {
  std::uint64_t value;

  // Throws "empty text" for an empty piece and "invalid decimal character" for any character
  // other than '0' to '9' (a sign, an inner blank, a letter).
  explicit TextToIndex(const StrippedText& piece) : value(0) {
    if (piece.empty()) throw std::invalid_argument("empty text");
    const signed char* const tonum = wx::basic_char_to_numeric<char, wx::encoding::host>::tonum_;
    for (unsigned long i = 0; i < piece.len; ++i) {
      const signed char digit = tonum[static_cast<unsigned char>(piece.ptr[i])];
      if (digit < 0 || digit > 9) throw std::invalid_argument("invalid decimal character");
      value = value * 10 + static_cast<std::uint64_t>(digit);
    }
  }
};

namespace {

typedef wx::char_casing<char, wx::language::english> Casing;

// The back end a type word selects.
enum BackEnd { kNoBackEnd, kConnector, kStreams, kFiles };

// The back end of a trimmed type word: its full name in any case, or its first letter alone.
BackEnd backEndOf(const StrippedText& word) {
  switch (word.len) {
    case 1:
      switch (word.ptr[0]) {
        case 'h':
        case 'H':
          return kConnector;
        case 's':
        case 'S':
          return kStreams;
        case 'f':
        case 'F':
          return kFiles;
        default:
          return kNoBackEnd;
      }
    case 6:
      return Casing::nocase_compare(word.ptr, "handle", 6) == 0 ? kConnector : kNoBackEnd;
    case 7:
      return Casing::nocase_compare(word.ptr, "streams", 7) == 0 ? kStreams : kNoBackEnd;
    case 5:
      return Casing::nocase_compare(word.ptr, "files", 5) == 0 ? kFiles : kNoBackEnd;
    default:
      return kNoBackEnd;
  }
}

// Whether [begin, end) holds nothing but white space.
bool isBlank(const char* begin, const char* end) {
  wx::space_stripper()(begin, end);
  return begin == end;
}

// The `sep`-separated pieces of the `len` characters at `text`, each stripped, in the order
// written. An empty text is one empty piece.
std::vector<StrippedText> splitStripped(const char* text, unsigned long len, char sep) {
  std::vector<StrippedText> pieces;
  const char* const end = text + len;
  const char* piece = text;
  for (;;) {
    const char* const stop = std::find(piece, end, sep);
    pieces.push_back(StrippedText(piece, static_cast<unsigned long>(stop - piece)));
    if (stop == end) return pieces;
    piece = stop + 1;
  }
}

// The ','-separated index list of `text`, read left to right, so that the first bad piece
// decides the message and any shape error comes before a count error.
std::vector<TextToIndex> readIndexList(const char* text, unsigned long len) {
  const std::vector<StrippedText> pieces = splitStripped(text, len, ',');
  std::vector<TextToIndex> indexes;
  indexes.reserve(pieces.size());
  for (const StrippedText& piece : pieces)
    indexes.push_back(TextToIndex(piece));
  return indexes;
}

// The pointer at `index` of the caller's array; a null array holds only null pointers.
void* argumentAt(void* const* args, const TextToIndex& index) {
  return args == nullptr ? nullptr : args[index.value];
}

// Runs a getter's body and lets only std::invalid_argument out, as a copy; any other exception
// (memory exhaustion, a failing stream or handle constructor) ends the process through
// std::terminate instead of reaching WSI_CreateContext's catch-all, on purpose: the getters are
// declared to throw argument errors only. C++17 has no dynamic exception specifications, so the
// rule is written out here.
template <class Body>
Handle* argumentErrorsOnly(Body body) {
  try {
    return body();
  } catch (const std::invalid_argument& e) {
    throw std::invalid_argument(e);
  } catch (...) {
    std::terminate();
  }
}

}  // namespace

// Parses "type(arguments)" within the first `specLen` bytes of `spec`. A string of the wrong
// shape or with an unknown type word leaves the context without a handle and is not an error;
// the getter's std::invalid_argument leaves the constructor.
Context::Context(const char* spec, unsigned long specLen, void** args)
    : handle_(nullptr), owns_handle_(false) {
  if (spec == nullptr || specLen == 0) return;
  const char* const end = spec + specLen;
  const char* const open = std::find(spec, end, '(');
  if (open == end || open + 1 == end) return;
  const char* const text = open + 1;
  const char* const close = std::find(text, end, ')');
  if (close == end || !isBlank(close + 1, end)) return;
  const unsigned long len = static_cast<unsigned long>(close - text);

  switch (backEndOf(StrippedText(spec, static_cast<unsigned long>(open - spec)))) {
    case kConnector:
      handle_ = getHandle(text, len, args);
      break;
    case kStreams:
      handle_ = getIosHandle(text, len, args);
      owns_handle_ = handle_ != nullptr;
      break;
    case kFiles:
      handle_ = getFioHandle(text, len);
      owns_handle_ = handle_ != nullptr;
      break;
    case kNoBackEnd:
      break;
  }
}

Context::~Context() {
  if (owns_handle_ && handle_ != nullptr) {
    delete handle_;
    handle_ = nullptr;
  }
}

// A null text holds no index, so it is reported as an empty list is.
Handle* Context::getHandle(const char* text, unsigned long len, void* const* args) const {
  return argumentErrorsOnly([&]() -> Handle* {
    if (text == nullptr) throw std::invalid_argument("empty text");
    const std::vector<TextToIndex> indexes = readIndexList(text, len);
    if (indexes.size() > 1) throw std::invalid_argument("too many parameters");
    void* const handle = argumentAt(args, indexes[0]);
    if (handle == nullptr) throw std::invalid_argument("invalid web server interface handle");
    // The caller's object is taken as it is: no check, no conversion.
    return static_cast<Handle*>(handle);
  });
}

Handle* Context::getIosHandle(const char* text, unsigned long len, void* const* args) const {
  return argumentErrorsOnly([&]() -> Handle* {
    if (text == nullptr) throw std::invalid_argument("invalid number of parameters");
    const std::vector<TextToIndex> indexes = readIndexList(text, len);
    if (indexes.size() != 3) throw std::invalid_argument("invalid number of parameters");
    void* const config = argumentAt(args, indexes[0]);
    if (config == nullptr) throw std::invalid_argument("invalid request config stream");
    void* const posted = argumentAt(args, indexes[1]);
    if (posted == nullptr) throw std::invalid_argument("invalid posted data stream");
    void* const output = argumentAt(args, indexes[2]);
    if (output == nullptr) throw std::invalid_argument("invalid response output stream");
    return new IosHandle(*static_cast<std::istream*>(config), *static_cast<std::istream*>(posted),
                         *static_cast<std::ostream*>(output));
  });
}

// File names are separated by '*' (they may hold commas); there is no quoting, so a name cannot
// hold '*' or begin or end with white space.
Handle* Context::getFioHandle(const char* text, unsigned long len) const {
  return argumentErrorsOnly([&]() -> Handle* {
    if (text == nullptr) throw std::invalid_argument("invalid number of parameters");
    const std::vector<StrippedText> names = splitStripped(text, len, '*');
    if (names.size() != 3) throw std::invalid_argument("invalid number of parameters");
    const std::string config = names[0].str();
    const std::string posted = names[1].str();
    const std::string output = names[2].str();
    if (config.empty()) throw std::invalid_argument("invalid request config file name");
    if (posted.empty()) throw std::invalid_argument("invalid posted data file name");
    if (output.empty()) throw std::invalid_argument("invalid response output file name");
    return new FioHandle(config.c_str(), posted.c_str(), output.c_str());
  });
}

}  // namespace wsi

// --- C entry points -----------------------------------------------------------------------------

void* WSI_CreateContext(const char* spec, unsigned long specLen, void** args) {
  try {
    return new wsi::Context(spec, specLen, args);
  } catch (...) {
    return nullptr;
  }
}

void* WSI_ContextGetHandle(void* context) {
  return context == nullptr ? nullptr : static_cast<wsi::Context*>(context)->handle();
}

// The caller's variable is cleared before the context goes. Every destructor on this path is
// non-throwing (the file closes and the responses keep a throwing stream's exception to
// themselves), so nothing can leave the delete. A null pointer to the variable is ignored.
void WSI_DestroyContext(void** context) {
  if (context == nullptr) return;
  wsi::Context* const doomed = static_cast<wsi::Context*>(*context);
  *context = nullptr;
  delete doomed;
}
