// Stream, file and connector handles built by 16 threads at once, all logging into one file: the
// logging set-up runs once and no message is torn or lost. CI runs it under ThreadSanitizer too.
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <future>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <w3/w3.h>
#include <wsi/wsi.hpp>
#include "ios_test_util.hpp"
#include "qco_test_util.hpp"

static std::atomic<int> g_log_name_calls(0), g_config_init_calls(0);

// The two services that the logging set-up calls once, counted and passed on to the real ones
// (<w3/w3.h> gives them the visibility that lets them stand in for the library's).
extern "C" void W3LOG_GetQorvaLogFileName(char* buffer, int size, const char* baseName) {
  static const auto real = reinterpret_cast<void (*)(char*, int, const char*)>(
      dlsym(RTLD_NEXT, "W3LOG_GetQorvaLogFileName"));
  ++g_log_name_calls;
  real(buffer, size, baseName);
}

extern "C" void W3CFG_Initialize(void) {
  static const auto real = reinterpret_cast<void (*)()>(dlsym(RTLD_NEXT, "W3CFG_Initialize"));
  ++g_config_init_calls;
  real();
}

namespace {

const int kThreads = 16;

// The messages an exchange logged, each as "<thread id> <text>".
typedef std::vector<std::string> Messages;

// One exchange of `kind` (0: streams, 1: connector, 2: files in `dir`) logging a long message,
// which a write split in parts would tear; what it logged goes into `logged`.
void exchange(const wsi_test::TempDir& dir, int kind, int thread, Messages& logged) {
  const std::string n = std::to_string(thread) + "." + std::to_string(kind), body = "body " + n;
  const std::string config = "REQUEST_METHOD=GET\nURL=/" + n + "\n", file = dir / n;
  wsi_test::writeFile(file + ".cfg", config);  // the files' posted data too
  const std::string specs[] = {"streams(0,1,2)", "handle(0)",
                               "files(" + file + ".cfg*" + file + ".cfg*" + file + ".out)"};
  std::istringstream config_in(config), posted;
  std::ostringstream out;
  void* args[] = {&config_in, &posted, &out};
  qcotest::SocketPair pair;
  qco::QorvaConnector connector(pair.host);
  std::future<void> peer;
  std::unique_ptr<wsi::QcoHandle> qco_handle;
  if (kind == 1) {
    peer = std::async(std::launch::async, [&] {
      qcotest::sendAll(pair.peer, qcotest::message(qcotest::variable("URL", "/" + n) + '\x80'));
      out << qcotest::receiveMessage(pair.peer);
    });
    qco_handle.reset(new wsi::QcoHandle(connector));
    args[0] = qco_handle.get();
  }
  void* context = WSI_CreateContext(specs[kind].c_str(), specs[kind].size(), args);
  wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
  ASSERT_NE(nullptr, handle);
  handle->Response().setHttpHeader("X-Exchange", n);
  *handle->Response().beginWrite() << body;
  EXPECT_TRUE(handle->Response().endWrite());
  ASSERT_NE(nullptr, wsi::Handle::plog_);  // the handle set logging up
  const std::string text = body + " " + std::string(6000, 'x') + " end";
  wsi::Handle::plog_->Log<7>("tests/threads_test", __LINE__, "Threads::exchange", "%s",
                             text.c_str());
  const std::string thread_id = std::to_string(syscall(SYS_gettid)) + " ";
  logged.push_back(thread_id + text);
  if (kind == 1) {  // the request logged its dump when it was read, the response when sent
    std::ostringstream request_dump, response_dump;
    handle->Request()._dump(request_dump);
    handle->Response()._dump(response_dump);
    logged.insert(logged.end(), {thread_id + request_dump.str(), thread_id + response_dump.str()});
  }
  WSI_DestroyContext(&context);
  if (peer.valid()) peer.get();
  if (kind == 2) out << wsi_test::readFile(file + ".out");
  EXPECT_EQ(body, out.str().substr(std::max(out.str().size(), body.size()) - body.size()));
}

TEST(Threads, EveryKindOfHandleFromSixteenThreadsLogsWholeLines) {
  const wsi_test::TempDir log_dir, files_dir;
  setenv("W3_LOG_DIR", (log_dir / "").c_str(), 1);
  setenv("WSI_LOG", "7", 1);
  unsetenv("W3_CONFIG");
  std::promise<void> open;
  std::shared_future<void> start = open.get_future().share();
  std::vector<Messages> logged(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&files_dir, start, &logged, i] {
      start.wait();  // all at once, each beginning with another kind, racing for the set-up
      for (int k = 0; k < 3; ++k)
        exchange(files_dir, (i + k) % 3, i, logged[i]);
    });
  open.set_value();
  for (std::thread& t : threads)
    t.join();

  // The set-up ran once: one call of each service.
  EXPECT_EQ(1, g_log_name_calls.load());
  EXPECT_EQ(1, g_config_init_calls.load());
  // Each line less its head is one whole message after its thread's id, each message once; a line
  // feed is logged as backslash and n (std::regex here: in the threads it upsets TSan).
  Messages expected, lines;
  for (const Messages& messages : logged)
    for (const std::string& message : messages)
      expected.push_back(std::regex_replace(message, std::regex("\n"), "\\n"));
  const std::regex head("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z debug WSI\\[" +
                            std::to_string(getpid()) +
                            ":(\\d+)\\] (tests/threads_test|wsi/common/wsiqco):\\d+ [A-Za-z_:]+: ",
                        std::regex::multiline);
  std::istringstream log(
      std::regex_replace(wsi_test::readFile(log_dir / "qv_wsi.log"), head, "$1 "));
  wsi::Handle::closeLog();
  for (std::string line; std::getline(log, line);)
    lines.push_back(line);
  std::sort(expected.begin(), expected.end());
  std::sort(lines.begin(), lines.end());
  EXPECT_TRUE(lines == expected) << lines.size() << " lines for " << expected.size() << " messages";
}

}  // namespace
