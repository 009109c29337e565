// The example host behind real nginx, lighttpd and Apache (FastCGI) and lighttpd's mod_cgi,
// driven by curl: the same requests through every set-up, then what only nginx's upstream
// handling can show (kept-alive connections, several hosts, a client that leaves).
#include "web_servers.hpp"

#include <strings.h>
#include <unistd.h>
#include <algorithm>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "data_table.hpp"

namespace {

using wsi_it::fetch;
using wsi_it::Frontend;
using wsi_it::replaced;
using wsi_it::Response;
using wsi_it::WebServer;

// The files that requests post, made once: printable bytes in a pattern that shows any loss.
const wsi_test::TempDir& clientDir() {
  static wsi_test::TempDir dir;
  static bool made = false;
  if (!made) {
    std::string data;
    for (std::size_t i = 0; data.size() < 1048576; ++i)
      data += "line " + std::to_string(i) + " of the posted data\n";
    data.resize(1048576);
    wsi_test::writeFile(dir / "1mb.dat", data);
    wsi_test::writeFile(dir / "100k.dat", data.substr(0, 100000));
    made = true;
  }
  return dir;
}

// One running web server per set-up, started at its first use and stopped when the test program
// ends.
WebServer& serverFor(Frontend setup) {
  static std::map<Frontend, std::unique_ptr<WebServer>> all;
  std::unique_ptr<WebServer>& server = all[setup];
  if (!server) server.reset(new WebServer(setup));
  return *server;
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, separator);)
    parts.push_back(part);
  return parts;
}

// Whether the header block holds `line` (name compared without regard to case).
bool hasHeaderLine(const std::string& headers, const std::string& line) {
  const std::size_t colon = line.find(':');
  for (const std::string& got : split(headers, '\n')) {
    if (got.size() < line.size() || strncasecmp(got.c_str(), line.c_str(), colon) != 0) continue;
    if (got.compare(colon, line.size() - colon, line, colon) == 0) return true;
  }
  return false;
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

class ThroughServer : public ::testing::TestWithParam<Frontend> {
 protected:
  WebServer& server() { return serverFor(GetParam()); }
};

TEST_P(ThroughServer, RequestTable) {
  WebServer& web = server();
  for (const wsi_test::Row& row : wsi_test::readTable("web_server_requests.tsv")) {
    SCOPED_TRACE(row[0] + " (line " + std::to_string(row.line) + ")");
    std::vector<std::string> args;
    std::string posted;
    for (const std::string& arg : split(row[1], '|')) {
      args.push_back(replaced(arg, "@DATA@/", clientDir() / ""));
      if (arg.rfind("@@DATA@/", 0) == 0) posted = wsi_test::readFile(args.back().substr(1));
    }
    const Response r = fetch(web.port(), row[2], args, web.dir());
    ASSERT_EQ(r.curl_exit, 0) << r.error << web.logs();
    EXPECT_EQ(r.status, std::stoi(row[3])) << r.headers << r.body.substr(0, 2000) << web.logs();
    if (!row[4].empty()) {
      EXPECT_TRUE(hasHeaderLine(r.headers, row[4])) << r.headers;
    }
    expectBody(r.body, row[5]);
    if (!posted.empty()) {
      EXPECT_NE(r.body.find(posted), std::string::npos) << "posted data lost";
    }
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
  std::vector<std::string> argv = {
      "curl", "-sS", "--max-time", "60", "-Z", "--parallel-max", std::to_string(parallel)};
  for (int i = 0; i < count; ++i) {
    argv.insert(argv.end(), {"-o", web.dir() + "/parallel-" + std::to_string(i) + ".txt"});
    argv.push_back("http://127.0.0.1:" + std::to_string(web.port()) + "/p?i=" + std::to_string(i));
  }
  const wsi_it::RunResult run = wsi_it::runProgram(argv, web.dir());
  if (run.exit_code != 0) return ::testing::AssertionFailure() << run.err << web.logs();
  for (int i = 0; i < count; ++i) {
    const std::string name = web.dir() + "/parallel-" + std::to_string(i) + ".txt";
    const std::string page = wsi_test::readFile(name);
    if (page.find("Query string: i=" + std::to_string(i) + "\n") == std::string::npos)
      return ::testing::AssertionFailure() << "request " << i << " got:\n" << page << web.logs();
    unlink(name.c_str());
  }
  return ::testing::AssertionSuccess();
}

// 48 requests, 16 at a time: each answer is the page of its own request.
TEST_P(ThroughServer, ParallelRequestsEachGetTheirOwnPage) {
  EXPECT_TRUE(parallelPages(server(), 48, 16));
}

INSTANTIATE_TEST_SUITE_P(Servers, ThroughServer,
                         ::testing::Values(Frontend::nginx, Frontend::lighttpd_fastcgi,
                                           Frontend::lighttpd_cgi, Frontend::apache),
                         [](const ::testing::TestParamInfo<Frontend>& info) {
                           return wsi_it::nameOf(info.param);
                         });

// Through nginx only: what its upstream handling can show.

// A client that leaves mid-response: the host's endWrite() fails (the demo says so on its error
// output) and the host serves the next request.
TEST(Nginx, ClientLeavingMidResponseFailsOnlyThatResponse) {
  WebServer& web = serverFor(Frontend::nginx);
  const std::string before = web.hostErrors();
  const wsi_it::RunResult run = wsi_it::runProgram(
      {"curl", "-sS", "-o", "/dev/null", "--limit-rate", "200k", "--max-time", "1",
       "http://127.0.0.1:" + std::to_string(web.port()) + "/bytes?n=16777216"},
      web.dir());
  EXPECT_EQ(run.exit_code, 28) << "curl should give up after its time limit: " << run.err;
  const std::string line = "wsi_demo: response not completed";
  bool seen = false;
  for (int i = 0; i < 500 && !seen; ++i) {
    seen = web.hostErrors().size() > before.size() &&
           web.hostErrors().find(line, before.size()) != std::string::npos;
    if (!seen) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_TRUE(seen) << web.logs();
  const Response next = fetch(web.port(), "/next?after=leaving", {}, web.dir());
  EXPECT_EQ(next.status, 200) << next.error << web.logs();
  EXPECT_NE(next.body.find("Query string: after=leaving\n"), std::string::npos);
}

// 16 kept-alive connections to a host of 2 threads: idle connections wait without a thread, so
// round after round reuses them and none stalls.
TEST(Nginx, KeptAliveConnectionsOutnumberHostThreads) {
  WebServer& web = serverFor(Frontend::nginx);
  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(parallelPages(web, 32, 16)) << "round " << round;
  }
  EXPECT_GT(connectionsTo(web.hostSocket(0)), 2) << "nginx keeps more connections than threads";
}

// Two hosts in one upstream: both get connections, every request gets its page.
TEST(Nginx, TwoHostsBehindOneUpstreamBothAnswer) {
  WebServer web(Frontend::nginx, 2, 2);
  ASSERT_TRUE(parallelPages(web, 32, 8));
  EXPECT_GT(connectionsTo(web.hostSocket(0)), 0) << web.logs();
  EXPECT_GT(connectionsTo(web.hostSocket(1)), 0) << web.logs();
}

// The lines of the demo page's section that starts with `title` ("Query arguments"), up to the
// blank line after it; the posted data for "Posted data" (everything after its heading line).
std::vector<std::string> section(const std::string& page, const std::string& title) {
  const std::size_t start = page.find("\n" + title + " (");
  if (start == std::string::npos) return {"(no section " + title + ")"};
  const std::size_t body = page.find('\n', start + 1) + 1;
  if (title == "Posted data") return {page.substr(body)};
  return split(page.substr(body, page.find("\n\n", body) - body), '\n');
}

// "  Name = value" lines as a map keyed by the lower-cased name.
std::map<std::string, std::string> byName(const std::vector<std::string>& lines) {
  std::map<std::string, std::string> map;
  for (const std::string& line : lines) {
    const std::size_t eq = line.find(" = ");
    std::string name = line.substr(0, eq);
    std::transform(name.begin(), name.end(), name.begin(), ::tolower);
    map[name] = eq == std::string::npos ? std::string() : line.substr(eq + 3);
  }
  return map;
}

// The request configuration for the stream back end holding what curl sent (its "> " lines of
// -v output): the method, the URL and every header, '%' written as "%25" (the values are
// percent-decoded).
std::string configFromCurl(const std::string& trace) {
  std::string config;
  for (std::string line : split(trace, '\n')) {
    if (line.rfind("> ", 0) != 0) continue;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::size_t colon = line.find(": ");
    if (config.empty()) {
      const std::vector<std::string> request_line = split(line.substr(2), ' ');
      config = "REQUEST_METHOD=" + request_line.at(0) +
               "\nHTTP_URL=" + replaced(request_line.at(1), "%", "%25") + "\n";
    } else if (colon != std::string::npos) {
      config += "header." + line.substr(2, colon - 2) + "=" +
                replaced(line.substr(colon + 2), "%", "%25") + "\n";
    }
  }
  return config;
}

// One request through nginx and the same request through the stream back end: the same query
// arguments, the same headers (by name, whatever its case) and the same posted data. The Host
// header has no port: Debian's fastcgi_params passes nginx's $host, which drops it.
TEST(Nginx, SameRequestAsOverTheStreamBackEnd) {
  WebServer& web = serverFor(Frontend::nginx);
  const std::string posted = clientDir() / "100k.dat";
  const Response r =
      fetch(web.port(), "/compare/me?a=1&b=two%20words&c=%C3%A9",
            {"-v", "-H", "Host: wsi.example", "-H", "X-Request-Id: cmp-7", "-H", "Cookie: k=v; n=m",
             "-H", "content-type: text/plain", "--data-binary", "@" + posted},
            web.dir());
  ASSERT_EQ(r.status, 200) << r.error << web.logs();
  const std::string config = web.dir() + "/compare.cfg";
  wsi_test::writeFile(config, configFromCurl(r.error));
  const wsi_it::RunResult direct =
      wsi_it::runProgram({"sh", "-c", "exec \"$0\" --config \"$1\" 'streams(0,1,2)' < \"$2\"",
                          WSI_DEMO, config, posted},
                         web.dir());
  ASSERT_EQ(direct.exit_code, 0) << direct.err;
  const std::string page = direct.out.substr(direct.out.find("\r\n\r\n") + 4);
  EXPECT_EQ(section(r.body, "Query arguments"), section(page, "Query arguments"));
  EXPECT_EQ(byName(section(r.body, "HTTP headers")), byName(section(page, "HTTP headers")))
      << "through nginx:\n"
      << r.body.substr(0, 1500) << "\nover streams:\n"
      << page.substr(0, 1500);
  EXPECT_TRUE(section(r.body, "Posted data") == section(page, "Posted data"));
  // The page ends the posted data with a line end of its own when it has none.
  EXPECT_EQ(section(page, "Posted data")[0], wsi_test::readFile(posted) + "\n");
}

// The serving documentation shows the configurations these tests run, as they are.
TEST(ServingDoc, ShowsTheTestedConfigurations) {
  const std::string doc = wsi_test::readFile(WSI_SERVING_DOC);
  ASSERT_FALSE(doc.empty()) << WSI_SERVING_DOC;
  for (const char* name :
       {"nginx.conf", "lighttpd-fastcgi.conf", "lighttpd-cgi.conf", "apache.conf"}) {
    const std::string conf = wsi_test::readFile(std::string(WSI_IT_CONF) + "/" + name);
    ASSERT_FALSE(conf.empty()) << name;
    EXPECT_NE(doc.find(conf), std::string::npos) << "docs/serving.md does not show " << name;
  }
}

}  // namespace
