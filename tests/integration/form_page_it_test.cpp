// The example host's /form page behind every web server set-up, driven by curl as a browser
// would: the form, a post of a field and a 5 MB file, and the visit cookie kept in a cookie jar.
#include <string>

#include <gtest/gtest.h>

#include "tests/integration/web_servers.hpp"

namespace {

using wsi_it::Frontend;

class FormThroughServer : public ::testing::TestWithParam<Frontend> {};

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST_P(FormThroughServer, FieldsFiveMegabyteUploadAndVisitCookie) {
  wsi_it::WebServer web(GetParam());
  wsi_test::TempDir client;
  std::string upload(5u << 20, '\0');
  for (std::size_t i = 0; i < upload.size(); ++i)
    upload[i] = static_cast<char>(i * 7 + i / 4093);  // CR LF and '-' bytes among the rest
  wsi_test::writeFile(client / "big.bin", upload);
  const std::string jar = client / "jar.txt";

  const wsi_it::Response get = wsi_it::fetch(web.port(), "/form", {"-c", jar}, web.dir());
  ASSERT_EQ(get.status, 200) << get.headers << get.error << web.logs();
  EXPECT_TRUE(has(get.body, "enctype=\"multipart/form-data\"")) << get.body;
  EXPECT_TRUE(has(get.body, "<p>Visits: 1</p>")) << get.body;

  const wsi_it::Response post = wsi_it::fetch(
      web.port(), "/form",
      {"-b", jar, "-c", jar, "-F", "comment=hello, form", "-F", "upload=@" + (client / "big.bin")},
      web.dir());
  ASSERT_EQ(post.status, 200) << post.headers << post.error << web.logs();
  EXPECT_TRUE(has(post.body, "<li>field comment = hello, form</li>")) << post.body;
  EXPECT_TRUE(has(post.body, "<li>file upload: big.bin, 5242880 bytes</li>")) << post.body;
  EXPECT_TRUE(has(post.body, "<p>Visits: 2</p>")) << post.body;
  // Both cookies of the answer arrive, each as its own header line.
  EXPECT_TRUE(has(post.headers,
                  "Set-Cookie: wsi_visits=2; Max-Age=31536000; Path=/; HttpOnly; SameSite=Lax\r\n"))
      << post.headers;
  EXPECT_TRUE(has(post.headers, "Set-Cookie: wsi_last=POST; Path=/form; SameSite=Lax\r\n"))
      << post.headers;

  const std::string kept = wsi_test::readFile(jar);
  EXPECT_TRUE(has(kept, "\twsi_visits\t2")) << kept;
  EXPECT_TRUE(has(kept, "\twsi_last\tPOST")) << kept;
  EXPECT_FALSE(has(web.hostErrors(), "wsi_demo:")) << web.hostErrors();
}

INSTANTIATE_TEST_SUITE_P(Servers, FormThroughServer,
                         ::testing::Values(Frontend::nginx, Frontend::lighttpd_fastcgi,
                                           Frontend::lighttpd_cgi, Frontend::apache),
                         [](const ::testing::TestParamInfo<Frontend>& info) {
                           return wsi_it::nameOf(info.param);
                         });

}  // namespace
