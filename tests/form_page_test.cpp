// The example host's /form page as a program: over the file back end, the connector (through
// wsi_peer) and CGI, with a committed request and its expected responses. A 5 MB upload and the
// first visit's cookie are shown behind every web server by web_servers_test.
#include <string>

#include <gtest/gtest.h>

#include "ios_test_util.hpp"

namespace {

const std::string kData = std::string(WSI_TEST_DATA) + "/form_page/";

TEST(FormPage, PostOverFilesConnectorAndCgi) {
  wsi_test::TempDir dir;
  const std::string expected = wsi_test::readFile(kData + "expected.txt");

  const std::string files =
      "files(" + kData + "request.cfg*" + kData + "posted.dat*" + (dir / "files.txt") + ")";
  ASSERT_EQ(wsi_test::runShell(WSI_DEMO " " + wsi_test::shellQuoted(files)).status, 0);
  EXPECT_EQ(wsi_test::readFile(dir / "files.txt"), expected);

  EXPECT_EQ(wsi_test::runShell(WSI_PEER " -c " + kData + "request.cfg -d " + kData +
                               "posted.dat -- " WSI_DEMO " --connector")
                .out,
            expected);

  // CGI: the same answer, with CGI's Status line, CR LF line ends and one header per cookie.
  EXPECT_EQ(wsi_test::runShell("env -i REQUEST_METHOD=POST SCRIPT_NAME=/form "
                               "GATEWAY_INTERFACE=CGI/1.1 SERVER_PROTOCOL=HTTP/1.1 "
                               "'CONTENT_TYPE=multipart/form-data; boundary=----wsiform' "
                               "CONTENT_LENGTH=238 HTTP_COOKIE=wsi_visits=4 " WSI_DEMO " --cgi < " +
                               kData + "posted.dat")
                .out,
            wsi_test::readFile(kData + "expected_cgi.txt"));
}

}  // namespace
