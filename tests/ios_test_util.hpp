// Helpers shared by the tests of the back ends: a scratch directory, whole-file reads and
// writes, a stream buffer that cannot flush, name tables as text, and commands run through the
// shell.
#ifndef WSI_TESTS_IOS_TEST_UTIL_HPP
#define WSI_TESTS_IOS_TEST_UTIL_HPP

#include <stdlib.h>
#include <sys/wait.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

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
  std::ostringstream content;
  // Whole buffers at a time: the integration tests read responses of megabytes, also under
  // valgrind.
  if (in) content << in.rdbuf();
  return content.str();
}

// Replaces the file at `path` with `content`.
inline void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios_base::binary) << content;
}

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

// Runs `command` through the shell with its standard output going to the file `out` and its
// errors to `err`; its exit status, or -1 when it did not exit.
inline int runShell(const std::string& command, const std::string& out, const std::string& err) {
  const int status =
      std::system((command + " >" + shellQuoted(out) + " 2>" + shellQuoted(err)).c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace wsi_test

#endif  // WSI_TESTS_IOS_TEST_UTIL_HPP
