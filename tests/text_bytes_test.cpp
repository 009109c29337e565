// Where the library reads a text holding a NUL byte as a C string and where as bytes: one table
// over the places a host can reach, through the stream back end and the C entry points.
#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/wsi.h>
#include <wsi/wsi.hpp>
#include "data_table.hpp"
#include "ios_test_util.hpp"

namespace {

// The header block, after its status line, of a stream response given the header (name, value).
std::string headerBlockWith(const std::string& name, const std::string& value) {
  wsi_test::Exchange ex;
  ex.handle.Response().setHttpHeader(name, value);
  ex.handle.Response().endWrite();
  return ex.output.str().substr(ex.output.str().find('\n') + 1);
}

// The request read from `config`: method | headers | server variables | query arguments.
std::string requestFrom(const std::string& config) {
  const wsi_test::Exchange ex(config);
  const wsi::Request& r = ex.handle.Request();
  return std::string(wsi::Http::MethodNameOf<wx::encoding::host>(r.Method())) + " | " +
         wsi_test::entries(r.HttpHeaders_begin(), r.HttpHeaders_end()) + " | " +
         wsi_test::entries(r.ServerVariables_begin(), r.ServerVariables_end()) + " | " +
         wsi_test::entries(r.QueryArgs_begin(), r.QueryArgs_end());
}

// What WSI_CreateContext makes of `spec` over three streams.
std::string contextFrom(const std::string& spec) {
  std::istringstream config, posted;
  std::ostringstream output;
  void* args[] = {&config, &posted, &output};
  void* context = WSI_CreateContext(spec.data(), spec.size(), args);
  if (context == nullptr) return "no context";
  const bool has_handle = WSI_ContextGetHandle(context) != nullptr;
  WSI_DestroyContext(&context);
  return has_handle ? "handle" : "no handle";
}

// The files in a fresh folder after a "files" context named `output` its output file.
std::string filesAfter(const std::string& output) {
  wsi_test::TempDir dir;
  wsi_test::writeFile(dir / "config", "");
  wsi_test::writeFile(dir / "posted", "");
  const std::string spec =
      "files(" + dir / "config" + "*" + dir / "posted" + "*" + dir / output + ")";
  void* context = WSI_CreateContext(spec.data(), spec.size(), nullptr);
  WSI_DestroyContext(&context);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir / ""))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  std::string list;
  for (const std::string& name : names)
    list += (list.empty() ? "" : ",") + name;
  return list;
}

TEST(TextAndBytes, NamesEndAtNulValuesAreBytes) {
  for (const wsi_test::Row& row : wsi_test::readTable("text_and_bytes.tsv")) {
    SCOPED_TRACE("text_and_bytes.tsv line " + std::to_string(row.line));
    const std::string& place = row[0];
    const std::string got = place == "header"   ? headerBlockWith(row[1], row[2])
                            : place == "config" ? requestFrom(row[1])
                            : place == "spec"   ? contextFrom(row[1])
                            : place == "file"   ? filesAfter(row[1])
                                                : "unknown place " + place;
    EXPECT_EQ(row[3], got);
  }
}

}  // namespace
