// Helpers shared by the tests of the stream and file back ends: a scratch directory, whole-file
// reads and writes, a stream buffer that cannot flush, and name tables as text.
#ifndef WSI_TESTS_IOS_TEST_UTIL_HPP
#define WSI_TESTS_IOS_TEST_UTIL_HPP

#include <stdlib.h>
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
  return std::string(std::istreambuf_iterator<char>(in), {});
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

}  // namespace wsi_test

#endif  // WSI_TESTS_IOS_TEST_UTIL_HPP
