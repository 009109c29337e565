// Fuzz target: specification strings through WSI_CreateContext. The input is the specification
// text, passed with its exact length and without a terminating zero.
//
// The library reads indexes from the text and uses args[index] unchecked: by contract the caller's
// array is long enough and holds at each index the kind of object that the index's place asks
// for. The target's array holds a request configuration stream, a posted-data stream, the
// response output stream and a null pointer, and inputs that a host could not legitimately pass
// are skipped: any decimal run whose number is past the end of the array, or that names an object
// of the wrong kind (the first two indexes name input streams, the third the output stream).
// Whenever the library reaches the array, the digits of the text are exactly its indexes, in order:
// a digit in the type word or after the ')' makes the string unacceptable, and a piece holding
// anything but digits is refused before any pointer is read.
//
// A "files" context opens the names it is given relative to the current directory. Its three
// names need two '*', while a '*' anywhere in a "handle" or "streams" string stops it before the
// array is read, so an input with a '*' is given no array at all (the "files" type must not use
// it) and runs with a scratch directory of the target's own as the current directory; such inputs
// holding '/' or ".." are skipped, so that every name stays inside that directory. After each
// one the directory is emptied and its two seed files, a request configuration "req.cfg" and
// posted data "post.dat", are written again.
#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <wsi/wsi.hpp>
#include "fuzz_check.hpp"

namespace {

const char kConfig[] = "REQUEST_METHOD=POST\nHTTP_URL=/form?a=1&b=2\nheader.X-Trace=t\n";
const char kPosted[] = "posted";
const char kBody[] = "body";

// The places of the target's argument array.
const unsigned kConfigSlot = 0, kPostedSlot = 1, kOutputSlot = 2, kNullSlot = 3, kSlots = 4;

// The decimal runs of `text` as numbers, each capped at kSlots (any larger number is refused).
std::vector<unsigned> decimalRuns(const std::string& text) {
  std::vector<unsigned> runs;
  bool in_run = false;
  for (char c : text) {
    if (c < '0' || c > '9') {
      in_run = false;
      continue;
    }
    if (!in_run) runs.push_back(0);
    in_run = true;
    unsigned& n = runs.back();
    n = n >= kSlots ? kSlots : n * 10 + static_cast<unsigned>(c - '0');
  }
  return runs;
}

// Whether every index of `text` is one a host could pass with the target's array.
bool indexesFit(const std::string& text) {
  const std::vector<unsigned> runs = decimalRuns(text);
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const unsigned slot = runs[i];
    if (slot >= kSlots) return false;
    if (slot == kNullSlot || i > 2) continue;
    const bool wants_output = i == 2;
    if ((slot == kOutputSlot) != wants_output) return false;
  }
  return true;
}

// The target's scratch directory, made at the first "files" input and removed at exit, and the
// directory the target started in.
class Scratch {
 public:
  Scratch() : home_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    const char* tmp = std::getenv("TMPDIR");
    path_ = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/wsi-fuzz-spec-XXXXXX";
    FUZZ_CHECK(home_ >= 0 && mkdtemp(&path_[0]) != nullptr);
  }
  ~Scratch() {
    if (chdir(path_.c_str()) == 0) empty();
    if (fchdir(home_) == 0) rmdir(path_.c_str());
    close(home_);
  }

  // Enters the directory with fresh seed files.
  void enter() {
    FUZZ_CHECK(chdir(path_.c_str()) == 0);
    std::ofstream("req.cfg", std::ios::binary) << kConfig;
    std::ofstream("post.dat", std::ios::binary) << kPosted;
  }
  // Empties the directory and goes back to the starting one.
  void leave() {
    empty();
    FUZZ_CHECK(fchdir(home_) == 0);
  }

 private:
  // Removes every file of the current directory (the library creates no directories).
  static void empty() {
    DIR* dir = opendir(".");
    FUZZ_CHECK(dir != nullptr);
    while (const dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") FUZZ_CHECK(unlink(name.c_str()) == 0);
    }
    closedir(dir);
  }

  int home_;
  std::string path_;
};

// Works through an exchange as a host would: reads the request and its posted data, answers
// with a short text body.
void serve(wsi::Handle& handle) {
  wsi::Request& request = handle.Request();
  fuzz::checkRequest(request);
  if (std::istream* in = request.beginRead()) {
    // Read through the stream, which turns a failing file (a name of a directory, say) into its
    // bad state, as a host reads.
    char buffer[256];
    while (in->read(buffer, sizeof buffer)) {
    }
    request.endRead();
  }
  wsi::Response& response = handle.Response();
  response.setHttpStatus(wsi::Http::Ok);
  response.setHttpHeader("Content-Type", "text/plain");
  if (std::ostream* out = response.beginWrite()) *out << kBody;
  response.endWrite();
}

// Creates and destroys one context from the `size` bytes at `spec` over `args`, and serves the
// exchange of a handle that the context made itself; `output` is the output stream that a stream
// handle writes to (null for a "files" input).
void runContext(const char* spec, std::size_t size, void** args, const std::ostringstream* output) {
  void* context = WSI_CreateContext(spec, size, args);
  if (context == nullptr) return;
  wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
  FUZZ_CHECK(WSI_ContextGetHandle(context) == handle);
  bool lent = false;
  for (unsigned i = 0; handle != nullptr && args != nullptr && i < kSlots; ++i)
    lent = lent || handle == args[i];
  if (lent) {
    // A "handle" context gives back the array entry at its one index, the first decimal run.
    FUZZ_CHECK(handle == args[decimalRuns(std::string(spec, size)).at(0)]);
  } else if (handle != nullptr) {
    serve(*handle);
    if (output != nullptr) fuzz::checkResponseText(output->str(), kBody, true);
  }
  WSI_DestroyContext(&context);
  FUZZ_CHECK(context == nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The library is given the input buffer itself, so that a read past its length is caught.
  const char* const text = reinterpret_cast<const char*>(data);
  const std::string spec(text, size);
  if (spec.find('*') != std::string::npos) {
    if (spec.find('/') != std::string::npos || spec.find("..") != std::string::npos) return 0;
    static Scratch scratch;
    scratch.enter();
    runContext(text, size, nullptr, nullptr);
    scratch.leave();
    return 0;
  }
  if (!indexesFit(spec)) return 0;
  std::istringstream config(kConfig);
  std::istringstream posted(kPosted);
  std::ostringstream output;
  void* args[kSlots];
  args[kConfigSlot] = &config;
  args[kPostedSlot] = &posted;
  args[kOutputSlot] = &output;
  args[kNullSlot] = nullptr;
  runContext(text, size, args, &output);
  return 0;
}
