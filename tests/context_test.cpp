// The specification grammar, the getters' argument errors and the C entry points.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cctype>
#include <cstring>
#include <functional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <wsi/wsi.h>
#include <wsi/context.hpp>
#include <wsi/ios_handle.hpp>

#include "tests/ios_test_util.hpp"

namespace {

// The three outcomes of WSI_CreateContext.
enum Outcome { kNoContext, kNoHandle, kHandle };

// The specification in a heap block of exactly its length, so that a read past the length given
// is caught by the address sanitizer.
struct ExactText {
  std::vector<char> bytes;
  explicit ExactText(const std::string& s) : bytes(s.begin(), s.end()) {}
  const char* data() const { return bytes.empty() ? nullptr : bytes.data(); }
};

// Streams for "streams(...)" at indexes 0 to 2 and the handle at index 3 for "handle(...)".
struct Args {
  std::istringstream config{"URL=/x"}, posted;
  std::ostringstream output;
  wsi::IosHandle lent{config, posted, output};
  void* pointers[4] = {&config, &posted, &output, &lent};
};

Outcome create(const std::string& spec, unsigned long len, void** args,
               void** handle_out = nullptr) {
  const ExactText text(spec);
  void* context = WSI_CreateContext(text.data(), len, args);
  if (context == nullptr) return kNoContext;
  void* handle = WSI_ContextGetHandle(context);
  if (handle_out != nullptr) *handle_out = handle;
  WSI_DestroyContext(&context);
  EXPECT_EQ(nullptr, context);
  return handle == nullptr ? kNoHandle : kHandle;
}

Outcome create(const std::string& spec, void** args) {
  return create(spec, spec.size(), args);
}

TEST(Context, Grammar) {
  const struct {
    const char* spec;
    Outcome outcome;
  } cases[] = {
      {"streams(0,1,2)", kHandle},
      {"S(0,1,2)", kHandle},
      {"  StReAmS  (0,1,2)  \n", kHandle},
      {"streams( 0 , 1 ,2 )", kHandle},
      {"handle(3)", kHandle},
      {"H( 3 )", kHandle},
      {"handle(003)", kHandle},
      {"", kNoHandle},
      {"handle", kNoHandle},
      {"handle(", kNoHandle},
      {"(0)", kNoHandle},
      {"x(0)", kNoHandle},
      {"hand(0)", kNoHandle},
      {"handles(3)", kNoHandle},
      {"stream(0,1,2)", kNoHandle},
      {"st reams(0,1,2)", kNoHandle},
      {"streams(0,1,2)x", kNoHandle},
      {"streams(0,1,2))", kNoHandle},
      {"streams)(0,1,2)", kNoHandle},
      {"handle()", kNoContext},
      {"handle((3))", kNoHandle},
      {"handle((3)", kNoContext},
      {"files(a*b)", kNoContext},
      {"streams(0,1,2,3)", kNoContext},
  };
  Args args;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.spec);
    EXPECT_EQ(c.outcome, create(c.spec, args.pointers));
  }
}

TEST(Context, LengthIsAuthoritative) {
  Args args;
  EXPECT_EQ(kNoHandle, create("streams(0,1,2)", 13, args.pointers));
  EXPECT_EQ(kHandle, create("streams(0,1,2)garbage", 14, args.pointers));
  EXPECT_EQ(kNoHandle, create("streams(0,1,2)", 0, args.pointers));
  void* context = WSI_CreateContext(nullptr, 14, args.pointers);
  ASSERT_NE(nullptr, context);
  EXPECT_EQ(nullptr, WSI_ContextGetHandle(context));
  WSI_DestroyContext(&context);
  // Every prefix of a valid string gives one of the outcomes and reads nothing beyond it.
  const std::string full = " files ( a * b * c ) ";
  for (unsigned long n = 0; n <= full.find(')'); ++n)
    EXPECT_NE(kHandle, create(full.substr(0, n), args.pointers)) << n;
}

TEST(Context, HandleIsLentAndStreamsAreOwned) {
  Args args;
  void* handle = nullptr;
  EXPECT_EQ(kHandle, create("handle(3)", 9, args.pointers, &handle));
  EXPECT_EQ(args.pointers[3], handle);
  // Huge indexes wrap modulo 2 to the 64th.
  EXPECT_EQ(kHandle, create("handle(18446744073709551619)", 28, args.pointers, &handle));
  EXPECT_EQ(args.pointers[3], handle);
  EXPECT_EQ(kHandle, create("streams(1, 18446744073709551617, 2)", 35, args.pointers));
  // The lent handle survived its contexts and is still usable.
  EXPECT_TRUE(args.lent.Response().endWrite());

  EXPECT_EQ(nullptr, WSI_ContextGetHandle(nullptr));
  void* none = nullptr;
  WSI_DestroyContext(&none);
  EXPECT_EQ(nullptr, none);
  WSI_DestroyContext(nullptr);
}

TEST(Context, GetterMessages) {
  const struct {
    const char* spec;
    const char* message;
  } cases[] = {
      {"handle(  )", "empty text"},
      {"handle(3,)", "empty text"},
      {"handle(,3)", "empty text"},
      {"handle(3,,3)", "empty text"},
      {"handle(3,x)", "invalid decimal character"},
      {"handle(-1)", "invalid decimal character"},
      {"handle(+1)", "invalid decimal character"},
      {"handle(0 1)", "invalid decimal character"},
      {"handle(0x1)", "invalid decimal character"},
      {"handle(3,3)", "too many parameters"},
      {"handle(4)", "invalid web server interface handle"},
      {"streams()", "empty text"},
      {"streams(0,1,2,)", "empty text"},
      {"streams(0,1,2,x)", "invalid decimal character"},
      {"streams(0,1)", "invalid number of parameters"},
      {"streams(0,1,2,3)", "invalid number of parameters"},
      {"streams(4,4,4)", "invalid request config stream"},
      {"streams(0,4,2)", "invalid posted data stream"},
      {"streams(0,1,4)", "invalid response output stream"},
      {"files()", "invalid number of parameters"},
      {"files(a,b,c)", "invalid number of parameters"},
      {"files(a*b*c*d)", "invalid number of parameters"},
      {"files(*b*c)", "invalid request config file name"},
      {"files(a** c)", "invalid posted data file name"},
      {"files(a*b* )", "invalid response output file name"},
      {"files( * * )", "invalid request config file name"},
  };
  Args args;
  void* with_null[5] = {args.pointers[0], args.pointers[1], args.pointers[2], args.pointers[3],
                        nullptr};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.spec);
    try {
      wsi::Context context(c.spec, std::strlen(c.spec), with_null);
      ADD_FAILURE() << "no exception";
    } catch (const std::invalid_argument& e) {
      EXPECT_STREQ(c.message, e.what());
    }
    EXPECT_EQ(kNoContext, create(c.spec, with_null));
  }
}

TEST(Context, NullTextsAndArrays) {
  const wsi::Context context(nullptr, 0, nullptr);
  EXPECT_EQ(nullptr, context.handle());
  const struct {
    std::function<void()> call;
    const char* message;
  } cases[] = {
      {[&] { context.getHandle(nullptr, 3, nullptr); }, "empty text"},
      {[&] { context.getIosHandle(nullptr, 5, nullptr); }, "invalid number of parameters"},
      {[&] { context.getFioHandle(nullptr, 5); }, "invalid number of parameters"},
      {[&] { context.getHandle("0", 1, nullptr); }, "invalid web server interface handle"},
      {[&] { context.getIosHandle("0,0,0", 5, nullptr); }, "invalid request config stream"},
  };
  for (const auto& c : cases) {
    try {
      c.call();
      ADD_FAILURE() << "no exception for " << c.message;
    } catch (const std::invalid_argument& e) {
      EXPECT_STREQ(c.message, e.what());
    }
  }
}

TEST(Context, FilesCreateTheOutputAndToleratesMissingInputs) {
  wsi_test::TempDir dir;
  const std::string out = dir / "out,put";
  wsi_test::writeFile(out, "stale");
  const std::string spec =
      "F( " + dir / "missing.cfg" + " *" + dir / "missing.dat" + "* " + out + " )";
  void* context = WSI_CreateContext(spec.c_str(), spec.size(), nullptr);
  ASSERT_NE(nullptr, context);
  wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
  ASSERT_NE(nullptr, handle);
  EXPECT_EQ("", wsi_test::readFile(out));
  EXPECT_EQ("", handle->Request().URL());
  EXPECT_TRUE(handle->Response().endWrite());
  WSI_DestroyContext(&context);
  EXPECT_EQ("HTTP/1.1 -1 Invalid Status\nContent-Type: application/octet-stream; charset=utf-8\n\n",
            wsi_test::readFile(out));
}

// Random specification strings of grammar characters: whatever they hold, a context without a
// handle is the only answer to a string without "(...)", and nothing crashes. The array holds
// null pointers only, so no stream handle is built; run in a scratch directory, since "files"
// strings create their output file.
TEST(Context, AnySpecificationString) {
  wsi_test::TempDir dir;
  char previous[4096];
  ASSERT_NE(nullptr, getcwd(previous, sizeof previous));
  ASSERT_EQ(0, chdir((dir / "").c_str()));
  const char alphabet[] = "hsfHSFandlertmi()(),,,***  \t\n\0x0123456789";
  void* nulls[10] = {};
  std::mt19937 random(12345);
  for (int i = 0; i < 20000; ++i) {
    std::string spec(random() % 24, ' ');
    for (std::string::size_type k = 0; k < spec.size(); ++k) {
      spec[k] = alphabet[random() % (sizeof alphabet - 1)];
      // Single digits only: an index beyond the array is a promise the caller never breaks.
      if (k > 0 && std::isdigit(static_cast<unsigned char>(spec[k])) &&
          std::isdigit(static_cast<unsigned char>(spec[k - 1])))
        spec[k] = ',';
    }
    const std::string::size_type open = spec.find('(');
    const bool shaped = open != std::string::npos && spec.find(')', open) != std::string::npos;
    const Outcome outcome = create(spec, nulls);
    if (!shaped) {
      EXPECT_EQ(kNoHandle, outcome) << spec;
    }
  }
  ASSERT_EQ(0, chdir(previous));
}

}  // namespace
