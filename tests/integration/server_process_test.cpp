// The harness that runs real servers: a whole process group stopped, a program that cannot start
// reported, waiting for a listener, and a client's output and exit status.
#include "tests/integration/server_process.hpp"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "tests/ios_test_util.hpp"

namespace {

using wsi_it::ServerProcess;

// Whether the process `pid` still runs: it exists and is not a zombie waiting for its reaper.
bool alive(pid_t pid) {
  const std::string stat = wsi_test::readFile("/proc/" + std::to_string(pid) + "/stat");
  const std::size_t paren = stat.rfind(')');
  return paren != std::string::npos && stat.compare(paren, 3, ") Z") != 0;
}

TEST(ServerProcess, StopEndsTheWholeGroupAndKeepsTheLog) {
  wsi_test::TempDir dir;
  // The shell leaves a grandchild that ignores SIGTERM, as a server's worker might.
  ServerProcess process(
      {"sh", "-c", "(trap '' TERM; sleep 60) & echo $! > child; echo started >&2; wait"}, dir / "",
      dir / "log");
  pid_t child = 0;
  for (int i = 0; i < 250 && child == 0; ++i) {
    child = std::atoi(wsi_test::readFile(dir / "child").c_str());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_GT(child, 0);
  EXPECT_TRUE(process.running());
  EXPECT_EQ(getpgid(child), process.pid());
  process.stop(std::chrono::milliseconds(300));
  EXPECT_FALSE(process.running());
  for (int i = 0; i < 250 && alive(child); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(alive(child));
  EXPECT_EQ(process.log(), "started\n");
  EXPECT_EQ(process.stop(), -1);
}

TEST(ServerProcess, MissingProgramIsAnErrorNamingIt) {
  wsi_test::TempDir dir;
  try {
    ServerProcess process({"/usr/sbin/no-such-server"}, dir / "", dir / "log");
    FAIL() << "started a program that does not exist";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find("/usr/sbin/no-such-server"), std::string::npos);
    EXPECT_NE(std::string(e.what()).find("No such file"), std::string::npos);
  }
}

TEST(ServerProcess, WaitForTcpSeesOnlyAListener) {
  const int port = wsi_it::freeLoopbackPort();
  EXPECT_FALSE(wsi_it::waitForTcp(port, std::chrono::milliseconds(60)));
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(fd, 4), 0);
  EXPECT_TRUE(wsi_it::waitForTcp(port, std::chrono::milliseconds(1000)));
  close(fd);
}

TEST(RunProgram, KeepsOutputErrorsAndExitStatus) {
  wsi_test::TempDir dir;
  const wsi_it::RunResult r =
      wsi_it::runProgram({"sh", "-c", "printf out; printf err >&2; exit 3"}, dir / "");
  EXPECT_EQ(r.exit_code, 3);
  EXPECT_EQ(r.out, "out");
  EXPECT_EQ(r.err, "err");
  EXPECT_EQ(wsi_it::runProgram({"sh", "-c", "kill -9 $$"}, dir / "").exit_code, -1);
}

}  // namespace
