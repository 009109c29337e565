// wsi_peer driving the example host over the connector: the same request files give the same
// response text as over the streams back end, and the tool's failures are clear.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kData = std::string(WSI_TEST_DATA) + "/qco_compare/";

std::string readFile(const std::string& path) {
  std::ifstream in(path.c_str(), std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

std::string shellQuoted(const std::string& s) {
  return "'" + s + "'";
}

// Runs `command` through the shell; its exit status.
int run(const std::string& command) {
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Case {
  std::string name;
  std::string config;
  std::string posted;  // empty: none
};

class QcoPeerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/qco_peer_test.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    std::string big(70000, '\0');
    for (std::size_t i = 0; i < big.size(); ++i)
      big[i] = static_cast<char>('0' + i % 10);
    std::ofstream(dir_ + "/big.dat", std::ios::binary) << big;
    cases_ = {{"form-post", kData + "form-post/request.cfg", kData + "form-post/posted.dat"},
              {"get-query", kData + "get-query/request.cfg", ""},
              {"large-put", kData + "large-put/request.cfg", dir_ + "/big.dat"},
              {"odd-method", kData + "odd-method/request.cfg", ""}};
  }
  void TearDown() override { run("rm -rf " + shellQuoted(dir_)); }

  // The example host's answer to `c` over the streams back end.
  std::string overStreams(const Case& c) {
    const std::string out = dir_ + "/" + c.name + ".streams";
    const std::string command =
        shellQuoted(WSI_DEMO) + " --config " + shellQuoted(c.config) + " 'streams(0,1,2)' < " +
        shellQuoted(c.posted.empty() ? "/dev/null" : c.posted) + " > " + shellQuoted(out);
    EXPECT_EQ(run(command), 0) << c.name;
    return readFile(out);
  }

  // wsi_peer with `options` in front of the request options of `cases` and `host` (if any)
  // behind "--".
  // Its exit status; standard output and error are kept in out_ and err_.
  int peer(const std::vector<Case>& cases, const std::string& options,
           const std::string& host = shellQuoted(WSI_DEMO) + " --connector") {
    std::string command = shellQuoted(WSI_PEER) + " " + options;
    for (const Case& c : cases) {
      command += " -c " + shellQuoted(c.config);
      if (!c.posted.empty()) command += " -d " + shellQuoted(c.posted);
    }
    if (!host.empty()) command += " -- " + host;
    command += " > " + shellQuoted(dir_ + "/out") + " 2> " + shellQuoted(dir_ + "/err");
    const int status = run(command);
    out_ = readFile(dir_ + "/out");
    err_ = readFile(dir_ + "/err");
    return status;
  }

  std::string dir_;
  std::vector<Case> cases_;
  std::string out_;
  std::string err_;
};

TEST_F(QcoPeerTest, SameResponseTextOverStreamsAndOverTheConnector) {
  std::string expected;
  for (const Case& c : cases_)
    expected += overStreams(c);
  ASSERT_EQ(peer(cases_, ""), 0) << err_;
  EXPECT_TRUE(out_ == expected) << "connector:\n" << out_ << "\nstreams:\n" << expected;
  EXPECT_EQ(err_, "");
  // Not two empty texts: four answered requests, the big body among them.
  std::size_t answered = 0;
  for (std::size_t at = 0; (at = out_.find("HTTP/1.1 200 OK\n", at)) != std::string::npos; ++at)
    ++answered;
  EXPECT_EQ(answered, 4u);
  EXPECT_NE(out_.find("Posted data (70000 bytes)"), std::string::npos);
}

TEST_F(QcoPeerTest, RequestsInThreeByteFramesGiveTheSameText) {
  const std::vector<Case> small(cases_.begin(), cases_.begin() + 2);
  std::string expected;
  for (const Case& c : small)
    expected += overStreams(c);
  ASSERT_EQ(peer(small, "-f 3 -o " + shellQuoted(dir_ + "/responses")), 0) << err_;
  EXPECT_EQ(out_, "");
  EXPECT_TRUE(readFile(dir_ + "/responses") == expected);
}

TEST_F(QcoPeerTest, HostThatEndsTheConnectionWithoutAnswering) {
  EXPECT_EQ(peer(cases_, "", "/bin/sh -c 'exit 3'"), 1);
  EXPECT_EQ(out_, "");
  EXPECT_NE(err_.find("wsi_peer: response 1: Connection ended by the peer"), std::string::npos)
      << err_;
  EXPECT_NE(err_.find("wsi_peer: the host exited with status 3"), std::string::npos) << err_;
}

struct UsageCase {
  const char* name;
  std::string options;  // with the host after "--"
  const char* message;
};

TEST_F(QcoPeerTest, UsageErrorsAreRefusedWithAMessage) {
  std::ofstream(dir_ + "/long.cfg")
      << "REQUEST_METHOD=GET\nheader.X=" << std::string(70000, 'x') << "\n";
  const UsageCase cases[] = {
      {"no request", "-- /bin/true", "no request (-c CONFIG)"},
      {"no host", "-c " + shellQuoted(cases_[0].config), "no host program after --"},
      {"missing configuration", "-c /nonexistent.cfg -- /bin/true",
       "cannot read the request configuration '/nonexistent.cfg'"},
      {"missing posted data",
       "-c " + shellQuoted(cases_[0].config) + " -d /nonexistent -- /bin/true",
       "cannot read the posted data '/nonexistent'"},
      {"bad frame size", "-f 0 -c x -- /bin/true", "unexpected -f 0"},
      {"value too long", "-c " + shellQuoted(dir_ + "/long.cfg") + " -- /bin/true",
       "is longer than 65535 bytes, which a request record cannot carry"},
  };
  for (const UsageCase& k : cases) {
    EXPECT_EQ(peer({}, k.options, ""), 2) << k.name;
    EXPECT_NE(err_.find(k.message), std::string::npos) << k.name << ": " << err_;
  }
}

}  // namespace
