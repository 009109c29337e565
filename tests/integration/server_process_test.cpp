// The harness that runs real servers stops the whole process group it started and leaves nothing
// behind, a worker that ignores SIGTERM included.
#include "server_process.hpp"

#include <thread>

#include <gtest/gtest.h>

#include "ios_test_util.hpp"

namespace {

// Whether the process `pid` still runs: it exists and is not a zombie waiting for its reaper.
bool alive(pid_t pid) {
  const std::string stat = wsi_test::readFile("/proc/" + std::to_string(pid) + "/stat");
  const std::size_t paren = stat.rfind(')');
  return paren != std::string::npos && stat.compare(paren, 3, ") Z") != 0;
}

TEST(ServerProcess, StopEndsTheWholeGroup) {
  wsi_test::TempDir dir;
  wsi_it::ServerProcess process({"sh", "-c", "(trap '' TERM; sleep 60) & echo $! > child; wait"},
                                dir / "", dir / "log");
  pid_t child = 0;
  for (int i = 0; i < 250 && child == 0; ++i) {
    child = std::atoi(wsi_test::readFile(dir / "child").c_str());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_GT(child, 0);
  process.stop(std::chrono::milliseconds(300));
  EXPECT_FALSE(process.running());
  for (int i = 0; i < 250 && alive(child); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(alive(child));
}

}  // namespace
