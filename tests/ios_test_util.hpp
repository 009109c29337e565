// Test helpers: scratch directories and files, a logger of the test's own, in-memory exchanges, a
// buffer that cannot flush, name tables as text, and shell commands.
#ifndef WSI_TESTS_IOS_TEST_UTIL_HPP
#define WSI_TESTS_IOS_TEST_UTIL_HPP

#include <stdlib.h>
#include <sys/wait.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <wsi/interface.hpp>
#include <wsi/ios_handle.hpp>
#include <wx/log.hpp>

namespace wsi_test {

// A fresh directory under the system's temporary directory, removed with everything in it.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "wsi-test-XXXXXX").string();
    if (mkdtemp(&pattern[0]) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // The path of `name` inside the directory.
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

// The whole content of the file at `path`; empty when it cannot be read.
inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios_base::binary);
  std::ostringstream content;  // whole buffers at a time: responses of megabytes, under valgrind
  if (in) content << in.rdbuf();
  return content.str();
}

// Replaces the file at `path` with `content`.
inline void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios_base::binary) << content;
}

// The library's logger, while the object lives: an enabled one writing to a file of its own.
class ScratchLog {
 public:
  explicit ScratchLog(int level) { use(level); }
  ~ScratchLog() { wsi::Handle::closeLog(); }  // not copied: its TempDir is not

  // Replaces the logger with a new one of `level` and a new, empty file.
  void use(int level) {
    wsi::Handle::closeLog();
    path_ = dir_ / ("qv_wsi." + std::to_string(++files_) + ".log");
    wsi::Handle::plog_ = new wx::log::log("WSI");
    wsi::Handle::plog_->file_name = path_;
    wsi::Handle::plog_->enabled = true;
    wsi::Handle::plog_->level = level;
  }
  // What the current logger wrote.
  std::string text() const { return readFile(path_); }

 private:
  TempDir dir_;
  std::string path_;
  int files_ = 0;
};

// A stream handle over in-memory streams: the configuration `text` and the posted `data`.
struct Exchange {
  std::istringstream config, posted;
  std::ostringstream output;
  wsi::IosHandle handle;

  explicit Exchange(const std::string& text = "", const std::string& data = "")
      : config(text), posted(data), handle(config, posted, output) {}
};

// A stream buffer whose flush always fails.
struct FailingSync : std::stringbuf {
  int sync() override { return -1; }
};

// The entries from `it` to `end` as "name=value;" texts, in the table's own order.
template <class Iterator>
std::string entries(Iterator it, Iterator end) {
  std::string text;
  for (; it != end; ++it)
    text += it->first + "=" + it->second + ";";
  return text;
}

// `s` as one word for the shell; `s` holds no single quote.
inline std::string shellQuoted(const std::string& s) {
  return "'" + s + "'";
}

// What a shell command did: its exit status (-1 when it did not exit), its output and its errors.
struct Ran {
  int status;
  std::string out, err;
};

inline Ran runShell(const std::string& command) {
  const TempDir dir;
  const int status = std::system(
      (command + " >" + shellQuoted(dir / "out") + " 2>" + shellQuoted(dir / "err")).c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(dir / "out"),
          readFile(dir / "err")};
}

}  // namespace wsi_test

#endif  // WSI_TESTS_IOS_TEST_UTIL_HPP
