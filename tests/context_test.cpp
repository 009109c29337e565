// The specification grammar of tests/data/context_specs.tsv, null texts and arrays, and the
// "files" type on real files, through the C entry points.
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/context.hpp>
#include <wsi/ios_handle.hpp>
#include <wsi/wsi.h>
#include "data_table.hpp"
#include "ios_test_util.hpp"

namespace {

// Streams at indexes 0 to 2 for "streams(...)", a handle to lend at 3 and a null pointer at 4.
struct Args {
  std::istringstream config{"URL=/x"}, posted;
  std::ostringstream output;
  wsi::IosHandle lent{config, posted, output};
  void* pointers[5] = {&config, &posted, &output, &lent, nullptr};
};

// What WSI_CreateContext makes of the first `len` bytes of `spec`, in the words of the table.
// The text lies in a heap block of exactly its own size, so that the address sanitizer catches a
// read past it; destroying the context must null the caller's variable.
std::string outcome(const std::string& spec, unsigned long len, Args& args) {
  const std::vector<char> text(spec.begin(), spec.end());
  void* context = WSI_CreateContext(text.empty() ? nullptr : text.data(), len, args.pointers);
  if (context == nullptr) return "no context";
  void* const handle = WSI_ContextGetHandle(context);
  WSI_DestroyContext(&context);
  EXPECT_EQ(nullptr, context);
  return handle == nullptr ? "no handle" : handle == &args.lent ? "lent" : "handle";
}

// The text of the std::invalid_argument that `call` throws; empty when it throws none.
std::string thrown(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "";
}

TEST(Context, SpecificationTable) {
  Args args;
  for (const wsi_test::Row& row : wsi_test::readTable("context_specs.tsv")) {
    SCOPED_TRACE("context_specs.tsv line " + std::to_string(row.line));
    const unsigned long len = row[1] == "all" ? row[0].size() : std::stoul(row[1]);
    EXPECT_EQ(row[2], outcome(row[0], len, args));
    EXPECT_EQ(row.fields.size() > 3 ? row[3] : "",
              thrown([&] { wsi::Context(row[0].data(), len, args.pointers); }));
  }
  // Every prefix that stops before the ')' is refused without a look past its length.
  const std::string full = " files ( a * b * c ) ";
  for (unsigned long n = 0; n <= full.find(')'); ++n)
    EXPECT_EQ("no handle", outcome(full.substr(0, n), n, args)) << n;
  EXPECT_TRUE(args.lent.Response().endWrite()) << "the lent handle outlives its contexts";
}

// A null text is an empty one whatever its length; a null array holds only null pointers.
TEST(Context, NullTextsAndArrays) {
  Args args;
  EXPECT_EQ("no handle", outcome("", 14, args));
  const wsi::Context c(nullptr, 0, nullptr);
  EXPECT_EQ("empty text", thrown([&] { c.getHandle(nullptr, 3, nullptr); }));
  EXPECT_EQ("invalid number of parameters", thrown([&] { c.getIosHandle(nullptr, 5, nullptr); }));
  EXPECT_EQ("invalid number of parameters", thrown([&] { c.getFioHandle(nullptr, 5); }));
  EXPECT_EQ("invalid web server interface handle", thrown([&] { c.getHandle("0", 1, nullptr); }));
  EXPECT_EQ("invalid request config stream", thrown([&] { c.getIosHandle("0,0,0", 5, nullptr); }));
  EXPECT_EQ(nullptr, WSI_ContextGetHandle(nullptr));
  void* none = nullptr;
  WSI_DestroyContext(&none);
  EXPECT_EQ(nullptr, none);
  WSI_DestroyContext(nullptr);
}

// "files" empties its output file as the context is created (the response is written only
// later) and takes posted data that cannot be opened as failed; names may hold commas.
TEST(Context, FilesEmptyTheOutputAtOnceAndTolerateMissingInputs) {
  wsi_test::TempDir dir;
  const std::string out = dir / "out,put";
  wsi_test::writeFile(out, "stale");
  const std::string spec =
      "F( " + dir / "missing.cfg" + " *" + dir / "missing.dat" + "* " + out + " )";
  void* context = WSI_CreateContext(spec.data(), spec.size(), nullptr);
  wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
  ASSERT_NE(nullptr, handle);
  EXPECT_EQ("", wsi_test::readFile(out));
  EXPECT_FALSE(handle->Request().endRead());
  WSI_DestroyContext(&context);
}

// Names are opened as given: a directory opens but its first read fails.
TEST(Context, FilesOpenADirectory) {
  wsi_test::TempDir dir;
  const std::string out = dir / "out";
  const std::string spec = "files(" + dir / "none" + "*" + dir / "." + "*" + out + ")";
  void* context = WSI_CreateContext(spec.data(), spec.size(), nullptr);
  wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
  ASSERT_NE(nullptr, handle);
  handle->Request().beginRead()->get();
  EXPECT_FALSE(handle->Request().endRead());
  EXPECT_TRUE(handle->Response().endWrite());
  WSI_DestroyContext(&context);
  EXPECT_NE("", wsi_test::readFile(out));
}

}  // namespace
