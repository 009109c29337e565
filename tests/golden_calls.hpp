// Golden exchanges: the case directories and the runner of their "calls" (one call a line, words
// described in tests/data/golden/README.md).
#ifndef WSI_TESTS_GOLDEN_CALLS_HPP
#define WSI_TESTS_GOLDEN_CALLS_HPP

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/wsi.h>
#include <wsi/wsi.hpp>
#include "data_table.hpp"

namespace wsi_test {

// Splits "NAME: VALUE" at its first ':' and drops one blank after it.
inline std::pair<std::string, std::string> headerOf(const std::string& arg) {
  const std::string::size_type colon = std::min(arg.find(':'), arg.size());
  const std::string value = arg.substr(std::min(colon + 1, arg.size()));
  return std::make_pair(arg.substr(0, colon), value.substr(value.rfind(' ', 0) == 0 ? 1 : 0));
}

// Does one line of a case's "calls" text on the exchange of `handle`.
inline void call(wsi::Handle& handle, const std::string& word, const std::string& arg) {
  wsi::Response& r = handle.Response();
  wsi::Request& q = handle.Request();
  if (word == "status") return r.setHttpStatus(static_cast<wsi::Http::Status>(std::stoi(arg)));
  if (word == "type") return r.setContentType(arg);
  if (word == "encoding") return r.setContentEncoding(arg);
  if (word == "length") return r.setContentLength(std::stoul(arg));
  if (word == "header") return r.setHttpHeader(headerOf(arg).first, headerOf(arg).second);
  if (word == "begin") return static_cast<void>(r.beginWrite());
  if (word == "flush") return r.flush();
  if (word == "close") return r.close();
  if (word == "end") {
    EXPECT_EQ(arg != "false", r.endWrite());
    return;
  }
  if (word == "mask") {  // the host's own exception mask on the stream it was given
    std::ios* s = arg == "posted" ? static_cast<std::ios*>(q.beginRead()) : r.beginWrite();
    return s->exceptions(std::ios_base::failbit | std::ios_base::badbit);
  }
  if (word == "add") {
    wsi::CgiResponse* cgi = dynamic_cast<wsi::CgiResponse*>(&r);
    ASSERT_TRUE(cgi != nullptr) << "add needs a CGI response";
    return cgi->addHttpHeader(headerOf(arg).first, headerOf(arg).second);
  }
  std::ostream* const os = r.beginWrite();  // the other calls write into the body
  std::ostringstream refused;               // or nowhere, when the body takes nothing more
  std::ostream& body = os != nullptr ? *os : refused;
  if (word == "body") return static_cast<void>(body << arg << '\n');
  if (word == "request") return q._dump(body);
  if (word == "response") return r._dump(body);
  if (word == "handle") return handle._dump(body);
  ASSERT_EQ("posted", word) << "unknown call";
  std::istream* in = q.beginRead();
  ASSERT_TRUE(in != nullptr && os != nullptr);
  EXPECT_EQ(in, q.beginRead());
  std::ostringstream data;  // takes a read error, leaving the state of `in` as the host left it
  data << in->rdbuf();
  *os << data.str();
  in->peek();  // the host's last read meets the end of the data, which alone is no failure
  EXPECT_EQ(arg != "false", q.endRead());
  EXPECT_TRUE(q.beginRead() == nullptr && !q.endRead()) << "reading ends once";
}

// Does every line of `calls` on `handle`, but empty lines and lines that begin with '#'.
inline void runCalls(wsi::Handle& handle, const std::string& calls) {
  std::istringstream lines(calls);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#') continue;
    SCOPED_TRACE(line);
    const std::string::size_type blank = std::min(line.find(' '), line.size());
    try {
      call(handle, line.substr(0, blank),
           unescapeField(line.substr(std::min(blank + 1, line.size()))));
    } catch (const std::ios_base::failure&) {  // what a masked stream throws is the host's to catch
    }
  }
}

// Makes a context from `spec` and `args`, does `calls` on its handle (which must exist), ends it.
inline void runExchange(const std::string& spec, void** args, const std::string& calls) {
  void* context = WSI_CreateContext(spec.data(), spec.size(), args);
  wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
  ASSERT_NE(nullptr, handle);
  runCalls(*handle, calls);
  WSI_DestroyContext(&context);
}

// The names of the case directories in `dir`, sorted.
inline std::vector<std::string> caseNames(const std::filesystem::path& dir) {
  std::set<std::string> names;
  for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator(dir))
    if (entry.is_directory()) names.insert(entry.path().filename().string());
  return std::vector<std::string>(names.begin(), names.end());
}

// A case's name as a test name: '-' becomes '_'.
inline std::string caseTestName(const ::testing::TestParamInfo<std::string>& info) {
  std::string name = info.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

}  // namespace wsi_test

#endif  // WSI_TESTS_GOLDEN_CALLS_HPP
