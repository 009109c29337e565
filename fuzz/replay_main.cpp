// Runs a fuzz target over files without libFuzzer, so that a crash file reproduces with any
// compiler and the committed corpus replays as an ordinary test:
//
//   replay_<target> FILE|DIRECTORY...
//
// A directory stands for its regular files, in name order. Each input is copied into a buffer of
// exactly its size, as libFuzzer does, so that a read past its end is caught by AddressSanitizer.
// A failed check or a sanitizer report ends the program as it would end the fuzzer; otherwise it
// prints how many inputs ran and exits with 0 (with 1 when there was none).
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

// The inputs that `argument` names: the file itself, or a directory's regular files sorted by
// name. False when it names neither.
bool collectInputs(const fs::path& argument, std::vector<fs::path>& inputs) {
  std::error_code error;
  if (fs::is_regular_file(argument, error)) {
    inputs.push_back(argument);
    return true;
  }
  if (!fs::is_directory(argument, error)) return false;
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(argument, error)) {
    if (entry.is_regular_file(error)) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  inputs.insert(inputs.end(), files.begin(), files.end());
  return !error;
}

// Runs the target once over the content of `path`.
bool runInput(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return false;
  std::unique_ptr<std::uint8_t[]> data(new std::uint8_t[bytes.size() + (bytes.empty() ? 1 : 0)]);
  std::copy(bytes.begin(), bytes.end(), data.get());
  std::fprintf(stderr, "replaying %s (%zu bytes)\n", path.c_str(), bytes.size());
  LLVMFuzzerTestOneInput(data.get(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s FILE|DIRECTORY...\n", argv[0]);
    return 2;
  }
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    if (!collectInputs(argv[i], inputs)) {
      std::fprintf(stderr, "%s: cannot read '%s'\n", argv[0], argv[i]);
      return 2;
    }
  }
  for (const fs::path& path : inputs) {
    if (!runInput(path)) {
      std::fprintf(stderr, "%s: cannot read '%s'\n", argv[0], path.c_str());
      return 2;
    }
  }
  std::fprintf(stderr, "%zu inputs ran\n", inputs.size());
  return inputs.empty() ? 1 : 0;
}
