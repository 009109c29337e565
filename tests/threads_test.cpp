// Handles of every kind built by 16 threads at once while the connector family logs its dumps
// into one file: the logging set-up runs once, no message is torn or lost, and after closeLog()
// the next handle sets logging up again. CI runs this under ThreadSanitizer as well.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <mutex>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <w3/w3.h>
#include <wsi/wsi.h>
#include <qco/qco.hpp>
#include <wsi/qco_handle.hpp>
#include <wx/log.hpp>

#include "tests/ios_test_util.hpp"
#include "tests/qco_test_util.hpp"

namespace {

std::atomic<int> g_log_name_calls(0);
std::atomic<int> g_config_init_calls(0);

// The web server service `name` of type Fn, as the library would reach it without this test.
template <class Fn>
Fn realService(const char* name) {
  return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The two services that the logging set-up calls exactly once, counted and passed on: the counts
// say how many times the set-up ran.
extern "C" void W3LOG_GetQorvaLogFileName(char* buffer, int size, const char* baseName) {
  typedef void (*Fn)(char*, int, const char*);
  static const Fn real = realService<Fn>("W3LOG_GetQorvaLogFileName");
  ++g_log_name_calls;
  real(buffer, size, baseName);
}

extern "C" void W3CFG_Initialize(void) {
  typedef void (*Fn)();
  static const Fn real = realService<Fn>("W3CFG_Initialize");
  ++g_config_init_calls;
  real();
}

namespace {

const int kThreads = 16;
const char kSource[] = "tests/threads_test";

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// A text as the logger writes it: each line feed as the two characters backslash and n. The texts
// of this test hold no other byte that the logger escapes.
std::string escaped(const std::string& text) {
  std::string out;
  for (char c : text)
    out += c == '\n' ? std::string("\\n") : std::string(1, c);
  return out;
}

// Releases every waiting thread at once, so that all of them race for the first handle.
class StartLine {
 public:
  void wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    ready_.wait(lock, [this] { return open_; });
  }
  void open() {
    std::lock_guard<std::mutex> lock(mutex_);
    open_ = true;
    ready_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable ready_;
  bool open_ = false;
};

// What one thread did and what it expects in the log: message text -> the thread's id.
struct ThreadResult {
  std::vector<wx::log::log*> loggers;  // wsi::Handle::plog_ after each handle was built
  std::map<std::string, long> messages;
  std::string stream_output, file_output, connector_reply;
};

class Threads : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, mkdir(log_dir_.c_str(), 0700));
    ASSERT_EQ(0, mkdir(second_log_dir_.c_str(), 0700));
    setenv("W3_LOG_DIR", log_dir_.c_str(), 1);
    setenv("WSI_LOG", "7", 1);
    unsetenv("W3_CONFIG");
  }
  void TearDown() override { wsi::Handle::closeLog(); }

  // One exchange over "streams(0,1,2)".
  void streamExchange(int i, ThreadResult& result) {
    std::istringstream config("REQUEST_METHOD=GET\nURL=/streams/" + std::to_string(i) + "\n");
    std::istringstream posted;
    std::ostringstream output;
    void* args[] = {&config, &posted, &output};
    void* context = WSI_CreateContext("streams(0,1,2)", 14, args);
    answer(context, "stream " + std::to_string(i), result);
    result.stream_output = output.str();
  }

  // One exchange over "files(...)" in the scratch directory.
  void fileExchange(int i, ThreadResult& result) {
    const std::string n = std::to_string(i);
    wsi_test::writeFile(scratch_ / ("config." + n), "REQUEST_METHOD=GET\nURL=/files/" + n + "\n");
    wsi_test::writeFile(scratch_ / ("posted." + n), "");
    const std::string spec = "files(" + scratch_ / ("config." + n) + "*" +
                             scratch_ / ("posted." + n) + "*" + scratch_ / ("out." + n) + ")";
    void* context = WSI_CreateContext(spec.c_str(), spec.size(), nullptr);
    answer(context, "file " + n, result);
    result.file_output = wsi_test::readFile(scratch_ / ("out." + n));
  }

  // One exchange over a connector, with a peer thread that sends one request and reads the reply.
  void connectorExchange(int i, ThreadResult& result) {
    const std::string n = std::to_string(i);
    qcotest::SocketPair pair;
    std::thread peer([&pair, &result, &n] {
      const std::string request = qcotest::variable("REQUEST_METHOD", "POST") +
                                  qcotest::variable("URL", "/qco/" + n) +
                                  qcotest::variable("QUERY_STRING", "n=" + n) +
                                  qcotest::header("X-Thread", n) + '\x80' + "posted " + n;
      qcotest::sendAll(pair.peer, qcotest::message(request));
      result.connector_reply = qcotest::receiveMessage(pair.peer);
    });
    {
      qco::QorvaConnector connector(pair.host);
      wsi::QcoHandle handle(connector);
      result.loggers.push_back(wsi::Handle::plog_);
      void* args[] = {&handle};
      void* context = WSI_CreateContext("handle(0)", 9, args);
      std::istream* in = handle.Request().beginRead();
      std::string body;
      char part[64];
      while (in->read(part, sizeof part) || in->gcount() > 0)
        body.append(part, static_cast<std::size_t>(in->gcount()));
      EXPECT_TRUE(handle.Request().endRead());
      wsi::Response& response = handle.Response();
      response.setHttpStatus(wsi::Http::Ok);
      response.setHttpHeader("X-Thread", n);
      *response.beginWrite() << body;
      EXPECT_TRUE(response.endWrite());
      // The request logged its dump when it was read, the response when its headers went out.
      std::ostringstream request_dump, response_dump;
      handle.Request()._dump(request_dump);
      response._dump(response_dump);
      result.messages[escaped(request_dump.str())] = syscall(SYS_gettid);
      result.messages[escaped(response_dump.str())] = syscall(SYS_gettid);
      WSI_DestroyContext(&context);
    }
    peer.join();
  }

  // Answers the request of `context`'s handle with `body`, logs a message of its own and destroys
  // the context.
  void answer(void* context, const std::string& body, ThreadResult& result) {
    wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
    ASSERT_NE(nullptr, handle);
    result.loggers.push_back(wsi::Handle::plog_);
    handle->Response().setHttpStatus(wsi::Http::Ok);
    *handle->Response().beginWrite() << body;
    EXPECT_TRUE(handle->Response().endWrite());
    // A long message, so that a write split in parts would show as a torn line.
    const std::string text = body + " " + std::string(6000 + body.size(), 'x') + " end";
    wsi::Handle::plog_->Log<7>(kSource, __LINE__, "Threads::answer", "%s", text.c_str());
    result.messages[text] = syscall(SYS_gettid);
    WSI_DestroyContext(&context);
  }

  wsi_test::TempDir scratch_;
  const std::string log_dir_ = scratch_ / "log";
  const std::string second_log_dir_ = scratch_ / "log2";
};

TEST_F(Threads, EveryKindOfHandleFromSixteenThreadsLogsWholeLines) {
  StartLine start;
  std::vector<ThreadResult> results(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([this, &start, &results, i] {
      start.wait();
      // Each thread begins with another kind, so every kind races for the first handle.
      for (int k = 0; k < 3; ++k) {
        switch ((i + k) % 3) {
          case 0:
            streamExchange(i, results[i]);
            break;
          case 1:
            fileExchange(i, results[i]);
            break;
          default:
            connectorExchange(i, results[i]);
        }
      }
    });
  start.open();
  for (std::thread& t : threads)
    t.join();

  // The set-up ran once: one call of each service, one logger, one log file.
  EXPECT_EQ(1, g_log_name_calls.load());
  EXPECT_EQ(1, g_config_init_calls.load());
  ASSERT_NE(nullptr, wsi::Handle::plog_);
  EXPECT_EQ(log_dir_ + "/qv_wsi.log", wsi::Handle::plog_->file_name);
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(log_dir_))
    files.push_back(entry.path().filename().string());
  EXPECT_EQ(std::vector<std::string>{"qv_wsi.log"}, files);

  std::map<std::string, long> expected;
  for (int i = 0; i < kThreads; ++i) {
    const std::string n = std::to_string(i);
    for (wx::log::log* logger : results[i].loggers)
      EXPECT_EQ(wsi::Handle::plog_, logger) << "thread " << i;
    EXPECT_EQ(
        "HTTP/1.1 200 OK\nContent-Type: application/octet-stream; charset=utf-8\n\nstream " + n,
        results[i].stream_output);
    EXPECT_EQ("HTTP/1.1 200 OK\nContent-Type: application/octet-stream; charset=utf-8\n\nfile " + n,
              results[i].file_output);
    EXPECT_EQ(std::string("\x03\x00\xC8", 3), results[i].connector_reply.substr(0, 3));
    EXPECT_TRUE(endsWith(results[i].connector_reply, "posted " + n)) << "thread " << i;
    expected.insert(results[i].messages.begin(), results[i].messages.end());
  }
  ASSERT_EQ(static_cast<std::size_t>(kThreads * 4), expected.size());

  // Every line is one whole message, written by the thread that logged it, each message once.
  const std::regex head(
      "^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z debug WSI\\[(\\d+):(\\d+)\\] "
      "(tests/threads_test|wsi/common/wsiqco):\\d+ [A-Za-z_:]+$");
  std::istringstream log(wsi_test::readFile(log_dir_ + "/qv_wsi.log"));
  std::string line;
  int lines = 0;
  while (std::getline(log, line)) {
    ++lines;
    const std::string::size_type colon = line.find(": ");
    ASSERT_NE(std::string::npos, colon) << "line " << lines;
    const std::string prefix = line.substr(0, colon);
    std::smatch m;
    ASSERT_TRUE(std::regex_match(prefix, m, head)) << "line " << lines << ": " << prefix;
    EXPECT_EQ(std::to_string(getpid()), m[1].str());
    const auto found = expected.find(line.substr(colon + 2));
    ASSERT_NE(expected.end(), found)
        << "line " << lines << " is not one whole message: " << line.substr(0, 160);
    EXPECT_EQ(std::to_string(found->second), m[2].str()) << "line " << lines;
    expected.erase(found);
  }
  EXPECT_EQ(kThreads * 4, lines);
  EXPECT_TRUE(expected.empty()) << expected.size() << " message(s) missing";

  // After closeLog() the next handle sets logging up again, from the configuration as it is now.
  wsi::Handle::closeLog();
  EXPECT_EQ(nullptr, wsi::Handle::plog_);
  setenv("W3_LOG_DIR", second_log_dir_.c_str(), 1);
  ThreadResult again;
  streamExchange(kThreads, again);
  EXPECT_EQ(2, g_log_name_calls.load());
  EXPECT_EQ(2, g_config_init_calls.load());
  ASSERT_NE(nullptr, wsi::Handle::plog_);
  EXPECT_EQ(second_log_dir_ + "/qv_wsi.log", wsi::Handle::plog_->file_name);
  const std::string second_log = wsi_test::readFile(second_log_dir_ + "/qv_wsi.log");
  EXPECT_EQ(1, std::count(second_log.begin(), second_log.end(), '\n'));
}

}  // namespace
