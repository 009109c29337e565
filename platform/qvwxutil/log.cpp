// The utility library's logger: one line a message, appended to a file created on first use.
#include <errno.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include <wx/char_casing.hpp>
#include <wx/log.hpp>

namespace wx {
namespace log {
namespace {

// Whether `text` equals `word` (lower case) ignoring ASCII case, independent of the C locale.
bool equalsWord(const char* text, const char* word) {
  const char* const upper = char_casing<char, language::english>::ascii_toupper_;
  for (; *word != '\0'; ++text, ++word)
    if (upper[static_cast<unsigned char>(*text)] != upper[static_cast<unsigned char>(*word)])
      return false;
  return *text == '\0';
}

// The syslog level words, by level.
const char* const kLevelWords[] = {"emerg",   "alert",  "crit", "err",
                                   "warning", "notice", "info", "debug"};
const int kLevelWordCount = static_cast<int>(sizeof kLevelWords / sizeof kLevelWords[0]);

// The level named by `text` when it is a word, or -1 when it is none.
int levelOfWord(const char* text) {
  for (int level = 0; level < kLevelWordCount; ++level)
    if (equalsWord(text, kLevelWords[level])) return level;
  if (equalsWord(text, "error")) return 3;
  if (equalsWord(text, "warn")) return 4;
  return -1;
}

// Reads `text` as an optional sign followed by one or more decimal digits and nothing else,
// clamping the value to the int range. Returns false when `text` is not such a number.
bool parseLevelNumber(const char* text, int& level) {
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  if (*text == '\0') return false;
  // Saturates one above INT_MAX, which is enough to clamp both ends.
  const unsigned long long limit = static_cast<unsigned long long>(INT_MAX) + 1;
  unsigned long long value = 0;
  for (; *text != '\0'; ++text) {
    if (*text < '0' || *text > '9') return false;
    value = value * 10 + static_cast<unsigned long long>(*text - '0');
    if (value > limit) value = limit;
  }
  if (negative)
    level = value >= limit ? INT_MIN : -static_cast<int>(value);
  else
    level = value >= limit ? INT_MAX : static_cast<int>(value);
  return true;
}

// Appends `text` with every control byte (below 0x20, and 0x7F) and the backslash written as an
// escape, so that a message can never end its line early or forge a line of its own.
void appendEscaped(std::string& line, const char* text, std::size_t length) {
  static const char hex[] = "0123456789abcdef";
  for (std::size_t i = 0; i < length; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c != 0x7F && c != '\\') {
      line.push_back(static_cast<char>(c));
      continue;
    }
    line.push_back('\\');
    switch (c) {
      case '\n':
        line.push_back('n');
        break;
      case '\r':
        line.push_back('r');
        break;
      case '\t':
        line.push_back('t');
        break;
      case '\\':
        line.push_back('\\');
        break;
      default:
        line.push_back('x');
        line.push_back(hex[c >> 4]);
        line.push_back(hex[c & 0xF]);
    }
  }
}

void appendEscaped(std::string& line, const char* text) {
  appendEscaped(line, text ? text : "", text ? std::char_traits<char>::length(text) : 0);
}

// Appends the current UTC time as "YYYY-MM-DDTHH:MM:SS.mmmZ".
void appendTimestamp(std::string& line) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  struct tm utc;
  gmtime_r(&now.tv_sec, &utc);
  char buffer[48];
  const std::size_t n = strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%S", &utc);
  line.append(buffer, n);
  const int written =
      std::snprintf(buffer, sizeof buffer, ".%03dZ", static_cast<int>(now.tv_nsec / 1000000));
  line.append(buffer, static_cast<std::size_t>(written));
}

// Appends the decimal form of `value`.
void appendNumber(std::string& line, long long value) {
  char buffer[24];
  const int written = std::snprintf(buffer, sizeof buffer, "%lld", value);
  line.append(buffer, static_cast<std::size_t>(written));
}

// Appends the level of a message: its syslog word, or its number outside 0..7.
void appendLevel(std::string& line, int level) {
  if (level >= 0 && level < kLevelWordCount)
    line.append(kLevelWords[level]);
  else
    appendNumber(line, level);
}

// Appends the message that `format` and `args` make, escaped.
void appendFormatted(std::string& line, const char* format, va_list args) {
  char small[512];
  va_list first;
  va_copy(first, args);
  const int needed = std::vsnprintf(small, sizeof small, format, first);
  va_end(first);
  if (needed < 0) return;
  if (static_cast<std::size_t>(needed) < sizeof small) {
    appendEscaped(line, small, static_cast<std::size_t>(needed));
    return;
  }
  std::string large(static_cast<std::size_t>(needed) + 1, '\0');
  va_list second;
  va_copy(second, args);
  std::vsnprintf(&large[0], large.size(), format, second);
  va_end(second);
  appendEscaped(line, large.data(), static_cast<std::size_t>(needed));
}

// Writes all of `line` with one write() call, so concurrent writers never tear a line.
bool writeLine(int fd, const std::string& line) {
  ssize_t written;
  do {
    written = ::write(fd, line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  return written == static_cast<ssize_t>(line.size());
}

}  // namespace

const int log::default_level;

log::log(const char* name) : name(name ? name : ""), level(default_level), enabled(false), fd_(-1) {
  pthread_mutex_init(&mutex, nullptr);
}

log::~log() {
  if (fd_ >= 0) ::close(fd_);
  pthread_mutex_destroy(&mutex);
}

int log::LevelOf(const char* text) {
  if (text == nullptr) return default_level;
  int level = levelOfWord(text);
  if (level >= 0) return level;
  return parseLevelNumber(text, level) ? level : default_level;
}

void log::_setTempFileName(const char* name) {
  if (name != nullptr) {
    file_name = name;
    return;
  }
  const char* dir = std::getenv("TMPDIR");
  file_name = dir != nullptr && *dir != '\0' ? dir : "/tmp";
  if (file_name[file_name.size() - 1] != '/') file_name.push_back('/');
  file_name += this->name;
  file_name.push_back('-');
  appendNumber(file_name, static_cast<long long>(getpid()));
  file_name += ".log";
}

void log::_X_LogVa(int level, const char* file, int line, const char* function, const char* format,
                   va_list args) const {
  std::string text;
  appendTimestamp(text);
  text.push_back(' ');
  appendLevel(text, level);
  text.push_back(' ');
  appendEscaped(text, name.c_str());
  text.push_back('[');
  appendNumber(text, static_cast<long long>(getpid()));
  text.push_back(':');
  appendNumber(text, static_cast<long long>(syscall(SYS_gettid)));
  text += "] ";
  appendEscaped(text, file);
  text.push_back(':');
  appendNumber(text, line);
  text.push_back(' ');
  appendEscaped(text, function);
  text += ": ";
  if (format != nullptr) appendFormatted(text, format, args);
  text.push_back('\n');

  // The file is opened at the first message written to it, and again after a failure or a
  // change of file name; a message that cannot be written is lost without a word.
  if (fd_ >= 0 && open_name_ != file_name) {
    ::close(fd_);
    fd_ = -1;
  }
  if (fd_ < 0) {
    if (file_name.empty()) return;
    fd_ = ::open(file_name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd_ < 0) return;
    open_name_ = file_name;
  }
  if (!writeLine(fd_, text)) {
    ::close(fd_);
    fd_ = -1;
  }
}

}  // namespace log
}  // namespace wx
