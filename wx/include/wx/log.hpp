// The utility library's logger.
#ifndef WX_LOG_HPP
#define WX_LOG_HPP

#include <pthread.h>
#include <cstdarg>
#include <string>

#include <wx/export.hpp>

namespace wx {
namespace log {

// A named logger that appends one line a message to a file. The file is created at the first
// message actually written, so a process that never logs leaves no file. A message passes when
// the logger is enabled and its level is at least the message's level, or negative.
class WX_API log {
 public:
  // The level of a new logger, and of an empty or unknown level word: failures only.
  static const int default_level = 3;

  // A logger called `name`, disabled, with no file name and the default level.
  explicit log(const char* name);
  virtual ~log();

  // The level that `text` names: a signed decimal number (out-of-range values are clamped to
  // the int range), or one of the words emerg 0, alert 1, crit 2, err or error 3, warning or
  // warn 4, notice 5, info 6, debug 7 in any case. Anything else gives default_level.
  static int LevelOf(const char* text);

  // Makes the logger write to a file name of its own choosing when `name` is null:
  // "$TMPDIR/<logger name>-<process id>.log", with /tmp when TMPDIR is unset or empty.
  // Otherwise the file name becomes `name`. The caller holds `mutex`.
  void _setTempFileName(const char* name);

  // Formats one message and appends it as one line; the caller holds `mutex`. Line feeds and
  // other control bytes of the text are written as escapes, so one message is always one line.
  void _X_LogVa(int level, const char* file, int line, const char* function, const char* format,
                va_list args) const;

  // Whether a message of level N would be written: the logger is enabled and its level is at
  // least N, or negative. Callers test this before they build an expensive message.
  template <int N>
  bool admits() const {
    return enabled && (level >= N || level < 0);
  }

  // Writes one message of level N when the logger admits it, holding `mutex` while it writes.
  template <int N>
  void Log(const char* file, int line, const char* function, const char* format, ...) const
#if defined(__GNUC__) || defined(__clang__)
      __attribute__((format(printf, 5, 6)))
#endif
      ;

  std::string name;               // the logger's name, as given
  std::string file_name;          // the file messages go to; set under `mutex`
  int level;                      // messages up to this level are written
  bool enabled;                   // a disabled logger writes nothing
  mutable pthread_mutex_t mutex;  // held while the file name is set and a message is written

 private:
  log(const log&);
  log& operator=(const log&);

  mutable int fd_;                 // the open log file, or -1 before the first message
  mutable std::string open_name_;  // the name fd_ was opened under; a new file_name reopens
};

// Inline, so that it stays out of the dynamic interface of every library that uses it.
template <int N>
inline void log::Log(const char* file, int line, const char* function, const char* format,
                     ...) const {
  if (!admits<N>()) return;
  va_list args;
  va_start(args, format);
  pthread_mutex_lock(&mutex);
  try {
    _X_LogVa(N, file, line, function, format, args);
  } catch (...) {
    pthread_mutex_unlock(&mutex);
    va_end(args);
    throw;
  }
  pthread_mutex_unlock(&mutex);
  va_end(args);
}

}  // namespace log
}  // namespace wx

#endif  // WX_LOG_HPP
