// The example host behind real nginx, lighttpd and Apache (FastCGI) and lighttpd's mod_cgi,
// driven by curl: the same requests through every set-up, then what only nginx's upstream
// handling can show (kept-alive connections, several hosts, a client that leaves).
#include "web_servers.hpp"

#include <unistd.h>
#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "data_table.hpp"
#include "fcgi_client.hpp"

namespace {

using fcgitest::split;
using wsi_it::replaced;
using wsi_it::WebServer;
using wsi_test::shellQuoted;

// The files that requests post, made once: lines of text in a pattern that shows any loss, and
// 5 MB of bytes with CR LF and '-' among them.
const wsi_test::TempDir& clientDir() {
  static wsi_test::TempDir dir;
  static bool made = false;
  if (!made) {
    std::string data, binary(5u << 20, '\0');
    for (std::size_t i = 0; data.size() < 1048576; ++i)
      data += "line " + std::to_string(i) + " of the posted data\n";
    for (std::size_t i = 0; i < binary.size(); ++i)
      binary[i] = static_cast<char>(i * 7 + i / 4093);
    wsi_test::writeFile(dir / "1mb.dat", data.substr(0, 1048576));
    wsi_test::writeFile(dir / "100k.dat", data.substr(0, 100000));
    wsi_test::writeFile(dir / "5mb.bin", binary);
    made = true;
  }
  return dir;
}

// One running web server per set-up, started at its first use and stopped when the test program
// ends.
WebServer& serverFor(const std::string& setup) {
  static std::map<std::string, std::unique_ptr<WebServer>> all;
  std::unique_ptr<WebServer>& server = all[setup];
  if (!server) server.reset(new WebServer(setup));
  return *server;
}

// What curl got for `path` from the server on 127.0.0.1:`port`, run with the options `args`.
struct Response {
  int status;           // the last status line's code, 0 when there was none
  std::string headers;  // the header block of the last response, as received
  std::string body;
  std::string error;  // curl's standard error
};
Response fetch(int port, const std::string& path, const std::vector<std::string>& args) {
  std::string command = "curl -sS --max-time 30";
  // -I (HEAD) writes the header block to the output itself.
  if (std::find(args.begin(), args.end(), "-I") == args.end()) command += " -D -";
  for (const std::string& arg : args)
    command += " " + shellQuoted(arg);
  const wsi_test::Ran run = wsi_test::runShell(
      command + " " + shellQuoted("http://127.0.0.1:" + std::to_string(port) + path));
  Response response{0, std::string(), std::string(), run.err};
  // Interim responses ("100 Continue") come first: keep the last header block.
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = run.out.find("\r\n\r\n", start);
    if (run.out.compare(start, 5, "HTTP/") != 0 || end == std::string::npos) break;
    response.headers = run.out.substr(start, end + 2 - start);
    start = end + 4;
  }
  response.body = run.out.substr(start);
  if (response.headers.size() > 9) response.status = std::atoi(response.headers.c_str() + 9);
  return response;
}

// Checks `body` against the table's body column.
void expectBody(const std::string& body, const std::string& expected) {
  if (expected.rfind("page:", 0) == 0) {
    for (const std::string& text : split(expected.substr(5), '|'))
      EXPECT_NE(body.find(text), std::string::npos) << "missing \"" << text << "\" in\n"
                                                    << body.substr(0, 3000);
  } else if (expected.rfind("xs:", 0) == 0) {
    EXPECT_EQ(body.size(), std::stoul(expected.substr(3)));
    EXPECT_EQ(body.find_first_not_of('x'), std::string::npos);
  } else if (expected == "empty") {
    EXPECT_EQ(body, "");
  }
}

class ThroughServer : public ::testing::TestWithParam<std::string> {};

TEST_P(ThroughServer, RequestTable) {
  WebServer& web = serverFor(GetParam());
  for (const wsi_test::Row& row : wsi_test::readTable("web_server_requests.tsv")) {
    SCOPED_TRACE(row[0] + " (line " + std::to_string(row.line) + ")");
    std::vector<std::string> args;
    std::string posted;
    for (const std::string& arg : split(row[1], '|')) {
      args.push_back(replaced(arg, "@DATA@/", clientDir() / ""));
      if (arg.rfind("@@DATA@/", 0) == 0) posted = wsi_test::readFile(args.back().substr(1));
    }
    const Response r = fetch(web.port(), row[2], args);
    EXPECT_EQ(r.status, std::stoi(row[3]))
        << r.error << r.headers << r.body.substr(0, 2000) << web.logs();
    for (const std::string& line : split(row[4], '|'))
      EXPECT_TRUE(row[4].empty() || r.headers.find("\n" + line + "\r\n") != std::string::npos)
          << line << " not in\n"
          << r.headers;
    expectBody(r.body, row[5]);
    EXPECT_TRUE(posted.empty() || r.body.find(posted) != std::string::npos) << "posted data lost";
  }
}

// The number of connected sockets whose address is the Unix socket `path` (the host's side of
// each connection a web server holds open to it), from /proc/net/unix.
int connectionsTo(const std::string& path) {
  std::ifstream table("/proc/net/unix");
  int count = 0;
  for (std::string line; std::getline(table, line);) {
    std::istringstream in(line);
    std::vector<std::string> fields;
    for (std::string field; in >> field;)
      fields.push_back(field);
    // Num RefCount Protocol Flags Type St Inode Path; St 03 is "connected".
    if (fields.size() == 8 && fields[5] == "03" && fields[7] == path) ++count;
  }
  return count;
}

// Runs `count` requests for /p?i=N, `parallel` at a time; true when every one got its own page.
::testing::AssertionResult parallelPages(WebServer& web, int count, int parallel) {
  std::string command = "curl -sS --max-time 60 -Z --parallel-max " + std::to_string(parallel);
  for (int i = 0; i < count; ++i)
    command +=
        " -o " + shellQuoted(web.dir() / ("parallel-" + std::to_string(i))) + " " +
        shellQuoted("http://127.0.0.1:" + std::to_string(web.port()) + "/p?i=" + std::to_string(i));
  const wsi_test::Ran run = wsi_test::runShell(command);
  if (run.status != 0) return ::testing::AssertionFailure() << run.err << web.logs();
  for (int i = 0; i < count; ++i) {
    const std::string name = web.dir() / ("parallel-" + std::to_string(i));
    const std::string page = wsi_test::readFile(name);
    if (page.find("Query string: i=" + std::to_string(i) + "\n") == std::string::npos)
      return ::testing::AssertionFailure() << "request " << i << " got:\n" << page << web.logs();
    unlink(name.c_str());  // a later round must not pass on this round's page
  }
  return ::testing::AssertionSuccess();
}

// 48 requests, 16 at a time: each answer is the page of its own request.
TEST_P(ThroughServer, ParallelRequestsEachGetTheirOwnPage) {
  EXPECT_TRUE(parallelPages(serverFor(GetParam()), 48, 16));
}

INSTANTIATE_TEST_SUITE_P(Servers, ThroughServer,
                         ::testing::Values("nginx", "lighttpd_fastcgi", "lighttpd_cgi", "apache"),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           return info.param;
                         });

// Through nginx only: what its upstream handling can show.

// A client that leaves mid-response: the host's endWrite() fails (the demo says so on its error
// output) and the host serves the next request.
TEST(Nginx, ClientLeavingMidResponseFailsOnlyThatResponse) {
  WebServer& web = serverFor("nginx");
  const std::string log = web.dir() / "host0.log", line = "wsi_demo: response not completed";
  const std::size_t before = wsi_test::readFile(log).size();
  const wsi_test::Ran run = wsi_test::runShell(
      "curl -sS -o /dev/null --limit-rate 200k --max-time 1 " +
      shellQuoted("http://127.0.0.1:" + std::to_string(web.port()) + "/bytes?n=16777216"));
  EXPECT_EQ(run.status, 28) << "curl should give up after its time limit: " << run.err;
  for (int i = 0; i < 500 && wsi_test::readFile(log).find(line, before) == std::string::npos; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_NE(wsi_test::readFile(log).find(line, before), std::string::npos) << web.logs();
  const Response next = fetch(web.port(), "/next?after=leaving", {});
  EXPECT_EQ(next.status, 200) << next.error << web.logs();
  EXPECT_NE(next.body.find("Query string: after=leaving\n"), std::string::npos);
}

// 16 kept-alive connections to a host of 2 threads: idle connections wait without a thread, so
// round after round reuses them and none stalls.
TEST(Nginx, KeptAliveConnectionsOutnumberHostThreads) {
  WebServer& web = serverFor("nginx");
  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(parallelPages(web, 32, 16)) << "round " << round;
  }
  EXPECT_GT(connectionsTo(web.hostSocket(0)), 2) << "nginx keeps more connections than threads";
}

// Two hosts in one upstream: both get connections, every request gets its page.
TEST(Nginx, TwoHostsBehindOneUpstreamBothAnswer) {
  WebServer web("nginx", 2);
  ASSERT_TRUE(parallelPages(web, 32, 8));
  EXPECT_GT(connectionsTo(web.hostSocket(0)), 0) << web.logs();
  EXPECT_GT(connectionsTo(web.hostSocket(1)), 0) << web.logs();
}

// What the demo page shows of the request: the query arguments and the headers, lines sorted
// (nginx passes the headers in an order of its own), then the posted data.
std::vector<std::string> requestShown(const std::string& page) {
  const std::size_t args = page.find("\nQuery arguments"), vars = page.find("\nServer variables");
  std::vector<std::string> lines = split(page.substr(args, vars - args), '\n');
  std::sort(lines.begin(), lines.end());
  lines.push_back(page.substr(page.find("\nPosted data")));
  return lines;
}

// One request through nginx and the same request, as curl sent it, through the stream back end:
// the page shows the same arguments, headers and posted data. The Host header has no port:
// Debian's fastcgi_params passes nginx's $host, which drops it.
TEST(Nginx, SameRequestAsOverTheStreamBackEnd) {
  WebServer& web = serverFor("nginx");
  const std::string posted = clientDir() / "100k.dat",
                    url = "/compare/me?a=1&b=two%20words&c=%C3%A9";
  const Response r =
      fetch(web.port(), url,
            {"-v", "-H", "Host: wsi.example", "-H", "X-Request-Id: cmp-7", "-H", "Cookie: k=v; n=m",
             "-H", "Content-Type: text/plain", "--data-binary", "@" + posted});
  ASSERT_EQ(r.status, 200) << r.error << web.logs();
  // The configuration's values are percent-decoded; the header values hold no '%'.
  std::string config = "REQUEST_METHOD=POST\nHTTP_URL=" + replaced(url, "%", "%25") + "\n";
  for (const std::string& line : split(r.error, '\n'))
    if (line.rfind("> ", 0) == 0 && line.find(": ") != std::string::npos)
      config += "header." + replaced(line.substr(2, line.size() - 3), ": ", "=") + "\n";
  wsi_test::writeFile(web.dir() / "compare.cfg", config);
  const wsi_test::Ran direct = wsi_test::runShell(shellQuoted(WSI_DEMO) + " --config " +
                                                  shellQuoted(web.dir() / "compare.cfg") +
                                                  " 'streams(0,1,2)' < " + shellQuoted(posted));
  ASSERT_EQ(direct.status, 0) << direct.err;
  EXPECT_EQ(requestShown(r.body), requestShown(direct.out));
  EXPECT_EQ(requestShown(r.body).back(),
            "\nPosted data (100000 bytes):\n" + wsi_test::readFile(posted) + "\n");
}

// The serving documentation shows the configurations these tests run, as they are.
TEST(ServingDoc, ShowsTheTestedConfigurations) {
  const std::string doc = wsi_test::readFile(WSI_SERVING_DOC);
  ASSERT_FALSE(doc.empty()) << WSI_SERVING_DOC;
  for (const wsi_test::Row& row : wsi_test::readTable("web_server_setups.tsv")) {
    const std::string conf = wsi_test::readFile(std::string(WSI_IT_CONF) + "/" + row[1]);
    ASSERT_FALSE(conf.empty()) << row[1];
    EXPECT_NE(doc.find(conf), std::string::npos) << "docs/serving.md does not show " << row[1];
  }
}

}  // namespace
