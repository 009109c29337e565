// The stream and file back ends and the C entry points: the golden exchanges of tests/data/golden,
// the tables of configurations, specifications, NUL bytes and destructors, long lines, stream
// states.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <qco/qco.hpp>
#include <wsi/context.hpp>
#include <wsi/ios_handle.hpp>
#include <wsi/qco_handle.hpp>
#include <wsi/wsi.h>
#include "data_table.hpp"
#include "golden_calls.hpp"
#include "ios_test_util.hpp"
#include "qco_test_util.hpp"

namespace {

using wsi_test::Exchange;
using wsi_test::Row;

const std::filesystem::path kCases = std::filesystem::path(WSI_TEST_DATA) / "golden";

// One golden case, run over the stream back end and over the file back end.
class Golden : public ::testing::TestWithParam<std::string> {
 protected:
  std::string file(const char* name) const { return (kCases / GetParam() / name).string(); }
  std::string calls() const { return wsi_test::readFile(file("calls")); }
};

TEST_P(Golden, StreamsBackEnd) {
  std::ifstream config(file("config"), std::ios_base::binary);
  std::ifstream posted(file("posted"), std::ios_base::binary);
  std::ostringstream output;
  void* args[] = {&config, &posted, &output};
  wsi_test::runExchange("streams(0,1,2)", args, calls());
  EXPECT_EQ(wsi_test::readFile(file("expected")), output.str());
}

TEST_P(Golden, FilesBackEnd) {
  wsi_test::TempDir dir;
  const std::string output = dir / "response,out";
  wsi_test::writeFile(output, "stale");
  const std::string spec = "files(" + file("config") + "*" + file("posted") + "*" + output + ")";
  wsi_test::runExchange(spec, nullptr, calls());
  const std::string own = file("expected.files");
  std::string expected = wsi_test::readFile(std::filesystem::exists(own) ? own : file("expected"));
  expected = std::regex_replace(expected, std::regex("<output>"), output);
  expected = std::regex_replace(expected, std::regex("<case>"), (kCases / GetParam()).string());
  EXPECT_EQ(expected, wsi_test::readFile(output));
}

INSTANTIATE_TEST_SUITE_P(Cases, Golden, ::testing::ValuesIn(wsi_test::caseNames(kCases)),
                         wsi_test::caseTestName);

// The answer to a request_config.tsv question (see the table's head), "(absent)" for a missing
// name; "all": method | headers | server variables | query arguments.
std::string answer(const wsi::Request& r, const std::string& kind, const std::string& name) {
  if (name == "all")
    return answer(r, kind, "Method") + " | " + answer(r, kind, "headers") + " | " +
           answer(r, kind, "vars") + " | " + answer(r, kind, "args");
  if (kind == "get") {
    if (name == "Method") return wsi::Http::MethodNameOf<wx::encoding::host>(r.Method());
    if (name == "vars")
      return wsi_test::entries(r.ServerVariables_begin(), r.ServerVariables_end());
    if (name == "headers") return wsi_test::entries(r.HttpHeaders_begin(), r.HttpHeaders_end());
    if (name == "args") return wsi_test::entries(r.QueryArgs_begin(), r.QueryArgs_end());
    return name == "URL" ? r.URL() : name == "HttpURL" ? r.HttpURL() : r.QueryString();
  }
  const std::string* found = kind == "var"      ? r.ServerVariables(name)
                             : kind == "header" ? r.HttpHeaders(name)
                                                : r.QueryArg(name);
  return found == nullptr ? "(absent)" : *found;
}

// A handle to lend at index 3, its streams at 0 to 2 for "streams(...)" and a null pointer at 4.
struct Args : Exchange {
  void* pointers[5] = {&config, &posted, &output, &handle, nullptr};
};

// The text of the std::invalid_argument that `call` throws; empty when it throws none.
template <class Call>
std::string thrown(const Call& call) {
  try {
    call();
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "";
}

// WSI_CreateContext's outcome for the first `len` bytes of `spec` (context_specs.tsv), a tab and
// what wsi::Context throws. The text has a heap block of its own size, for ASan to catch overreads.
std::string outcome(const std::string& spec, unsigned long len, Args& args, bool null_array) {
  const std::vector<char> bytes(spec.begin(), spec.end());
  const char* const text = bytes.empty() ? nullptr : bytes.data();
  void** const pointers = null_array ? nullptr : args.pointers;
  const std::string message = thrown([&] { wsi::Context(text, len, pointers); });
  void* context = WSI_CreateContext(text, len, pointers);
  if (context == nullptr) return "no context\t" + message;
  void* const handle = WSI_ContextGetHandle(context);
  WSI_DestroyContext(&context);
  EXPECT_EQ(nullptr, context);
  const std::string word = handle == nullptr        ? "no handle"
                           : handle == &args.handle ? "lent"
                                                    : "handle";
  return word + "\t" + message;
}

TEST(IosRequest, ConfigurationTable) {
  for (const Row& row : wsi_test::readTable("request_config.tsv")) {
    SCOPED_TRACE("request_config.tsv line " + std::to_string(row.line));
    Exchange ex(row[0]);
    EXPECT_EQ(row[3], answer(ex.handle.Request(), row[1], row[2]));
  }
}

TEST(Context, SpecificationTable) {
  Args args;
  for (const Row& row : wsi_test::readTable("context_specs.tsv")) {
    SCOPED_TRACE("context_specs.tsv line " + std::to_string(row.line));
    const unsigned long len = row[1] == "all" ? row[0].size() : std::stoul(row[1]);
    EXPECT_EQ(row[2] + "\t" + (row.fields.size() > 3 ? row[3] : ""),
              outcome(row[0], len, args, row.fields.size() > 4));
  }
  // Every prefix that stops before the ')' is refused without a look past its length.
  const std::string full = " files ( a * b * c ) ";
  for (unsigned long n = 0; n <= full.find(')'); ++n)
    EXPECT_EQ("no handle\t", outcome(full.substr(0, n), n, args, false)) << n;
  EXPECT_TRUE(args.handle.Response().endWrite()) << "the lent handle outlives its contexts";
  // The getters take a null text as an empty one; the C entry points take null contexts.
  const wsi::Context c(nullptr, 0, nullptr);
  EXPECT_EQ("empty text", thrown([&] { c.getHandle(nullptr, 3, nullptr); }));
  EXPECT_EQ("invalid number of parameters", thrown([&] { c.getIosHandle(nullptr, 5, nullptr); }));
  EXPECT_EQ("invalid number of parameters", thrown([&] { c.getFioHandle(nullptr, 5); }));
  EXPECT_EQ(nullptr, WSI_ContextGetHandle(nullptr));
  void* none = nullptr;
  WSI_DestroyContext(&none);
  WSI_DestroyContext(nullptr);
}

// The header block, after its status line, of a stream response given the header (name, value).
std::string headerBlockWith(const std::string& name, const std::string& value) {
  Exchange ex;
  ex.handle.Response().setHttpHeader(name, value);
  ex.handle.Response().endWrite();
  return ex.output.str().substr(ex.output.str().find('\n') + 1);
}

// The files in a fresh folder after a "files" context named `output` its output file there.
std::string filesAfter(const std::string& output) {
  wsi_test::TempDir dir;
  const std::string spec = "files(" + dir / "c" + "*" + dir / "p" + "*" + dir / output + ")";
  void* context = WSI_CreateContext(spec.data(), spec.size(), nullptr);
  WSI_DestroyContext(&context);
  std::string list;
  for (const auto& entry : std::filesystem::directory_iterator(dir / ""))
    list += (list.empty() ? "" : ",") + entry.path().filename().string();
  return list;
}

TEST(TextAndBytes, NamesEndAtNulValuesAreBytes) {
  Args args;
  for (const Row& row : wsi_test::readTable("text_and_bytes.tsv")) {
    SCOPED_TRACE("text_and_bytes.tsv line " + std::to_string(row.line));
    const std::string& place = row[0];
    const std::string got = place == "header" ? headerBlockWith(row[1], row[2])
                            : place == "config"
                                ? answer(Exchange(row[1]).handle.Request(), "get", "all")
                            : place == "spec" ? outcome(row[1], row[1].size(), args, false)
                            : place == "file" ? filesAfter(row[1])
                                              : "unknown place " + place;
    EXPECT_EQ(row[3], got.substr(0, got.find('\t')));
  }
}

// Lines have no length limit: a 1 MiB line is read whole and the lines after it still count.
TEST(IosRequest, LongLinesAndManyLines) {
  const std::string big(1 << 20, 'x');
  std::string lines = "HTTP_URL=/p?q=" + big + "\n" + big + "\n";
  for (int i = 0; i < 100000; ++i)
    lines += "v" + std::to_string(i) + "=" + std::to_string(i) + "\n";
  Exchange ex(lines);
  const wsi::Request& r = ex.handle.Request();
  EXPECT_EQ(big, *r.QueryArg("q"));
  EXPECT_EQ(100003, std::distance(r.ServerVariables_begin(), r.ServerVariables_end()));
  EXPECT_EQ("99999", *r.ServerVariables("V99999"));
}

// Stream errors show only in endWrite's result.
TEST(IosResponse, StreamStates) {
  Exchange failed;
  failed.output.setstate(std::ios_base::failbit);
  EXPECT_FALSE(failed.handle.Response().endWrite());

  wsi_test::FailingSync buffer;
  std::ostream unflushable(&buffer);
  wsi::IosHandle on_unflushable(failed.config, failed.posted, unflushable);
  EXPECT_FALSE(on_unflushable.Response().endWrite());
  // "HeadersSent=" in a dump sets boolalpha for its word only, whatever the caller had set.
  std::ostringstream dump;
  dump << std::boolalpha;
  failed.handle.Response()._dump(dump);
  dump << true;
  EXPECT_EQ('1', dump.str().back());
}

const std::ios_base::iostate kMask = std::ios_base::failbit | std::ios_base::badbit;

// The state of `s` as a word: "bad", "fail" or "good".
std::string stateOf(const std::ios& s) {
  return s.bad() ? "bad" : s.fail() ? "fail" : "good";
}

// One row over "files" with /dev/full as the output file, whose close fails on its flush.
std::string runFiles(const Row& row) {
  wsi_test::TempDir dir;
  const std::string spec = "files(" + dir / "config" + "*" + dir / "posted" + "*/dev/full)";
  wsi_test::runExchange(spec, nullptr, row[2]);
  return "-\t-";
}

// One row over "streams": the host masks its own output stream before the context exists.
std::string runStreams(const Row& row) {
  std::istringstream config("URL=/x"), posted("body");
  wsi_test::FailingSync failing;
  std::stringbuf plain;
  std::ostream output(row[1] == "failing flush" ? static_cast<std::stringbuf*>(&failing) : &plain);
  output.exceptions(kMask);
  void* args[] = {&config, &posted, &output};
  wsi_test::runExchange("streams(0,1,2)", args, row[2]);
  return static_cast<std::stringbuf*>(output.rdbuf())->str() + "\t" + stateOf(output);
}

// One row over "handle": the host masks its connector's stream and lends its handle; the output is
// what the web server received.
std::string runConnector(const Row& row) {
  qcotest::SocketPair sp;
  qco::QorvaConnector connector(sp.host);
  qcotest::sendAll(sp.peer, qcotest::message(qcotest::variable("REQUEST_METHOD", "GET") + "\x80"));
  connector.stream().exceptions(kMask);
  {
    wsi::QcoHandle handle(connector);
    if (row[1] == "peer gone") sp.closePeer();
    void* args[] = {&handle};
    wsi_test::runExchange("handle(0)", args, row[2]);
  }
  return (sp.peer >= 0 ? qcotest::receiveMessage(sp.peer) : "") + "\t" +
         stateOf(connector.stream());
}

// Destroying a context while a stream throws on failure; each row runs in a child process, so that
// a destructor that ends the process fails its row instead of the program.
TEST(Destructors, NeverEndTheProcessOnAMaskedStream) {
  for (const Row& row : wsi_test::readTable("destructor_masks.tsv")) {
    SCOPED_TRACE("destructor_masks.tsv line " + std::to_string(row.line));
    EXPECT_EXIT(
        {
          const std::string got = row[0] == "files"     ? runFiles(row)
                                  : row[0] == "streams" ? runStreams(row)
                                                        : runConnector(row);
          std::fprintf(stderr, "got: %s", got.c_str());
          std::_Exit(got == row[3] + "\t" + row[4] ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
  }
}

}  // namespace
