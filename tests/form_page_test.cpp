// The example host's /form page as a program: over the file back end, the connector (through
// wsi_peer) and CGI, with a committed request and its expected response. A 5 MB upload and the
// first visit's cookie are shown behind every web server by form_page_it_test.
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "ios_test_util.hpp"

namespace {

const std::string kData = std::string(WSI_TEST_DATA) + "/form_page/";

// Runs `command` through the shell; true when it exits with 0.
bool run(const std::string& command) {
  return std::system(command.c_str()) == 0;
}

std::string quoted(const std::string& text) {
  return "'" + text + "'";
}

TEST(FormPage, PostOverFilesConnectorAndCgi) {
  wsi_test::TempDir dir;
  const std::string expected = wsi_test::readFile(kData + "expected.txt");
  ASSERT_FALSE(expected.empty());

  const std::string files =
      "files(" + kData + "request.cfg*" + kData + "posted.dat*" + (dir / "files.txt") + ")";
  ASSERT_TRUE(run(WSI_DEMO " " + quoted(files)));
  EXPECT_EQ(wsi_test::readFile(dir / "files.txt"), expected);

  ASSERT_TRUE(run(WSI_PEER " -o " + quoted(dir / "peer.txt") + " -c " + kData + "request.cfg -d " +
                  kData + "posted.dat -- " WSI_DEMO " --connector"));
  EXPECT_EQ(wsi_test::readFile(dir / "peer.txt"), expected);

  // CGI: the same answer, with CGI's Status line and CR LF line ends.
  const std::string length = std::to_string(wsi_test::readFile(kData + "posted.dat").size());
  ASSERT_TRUE(
      run("env -i REQUEST_METHOD=POST SCRIPT_NAME=/form GATEWAY_INTERFACE=CGI/1.1 "
          "SERVER_PROTOCOL=HTTP/1.1 'CONTENT_TYPE=multipart/form-data; "
          "boundary=----wsiform' CONTENT_LENGTH=" +
          length + " HTTP_COOKIE=wsi_visits=4 " WSI_DEMO " --cgi < " + kData + "posted.dat > " +
          quoted(dir / "cgi.txt")));
  const std::string cgi = wsi_test::readFile(dir / "cgi.txt");
  EXPECT_EQ(cgi.substr(0, 16), "Status: 200 OK\r\n");
  EXPECT_NE(cgi.find("\r\nSet-Cookie: wsi_visits=5; Max-Age=31536000; Path=/; HttpOnly; "
                     "SameSite=Lax\r\nSet-Cookie: wsi_last=POST; Path=/form; SameSite=Lax\r\n"),
            std::string::npos)
      << cgi;
  EXPECT_EQ(cgi.substr(cgi.find("\r\n\r\n") + 4), expected.substr(expected.find("\n\n") + 2));
}

}  // namespace
