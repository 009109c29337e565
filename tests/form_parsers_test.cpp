// The URL-encoded and multipart parsers over byte strings: each body whole, in two pieces at
// every split point and one byte at a time must give the same result.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <wsi/form_urlencoded.hpp>
#include <wsi/multipart.hpp>
#include "data_table.hpp"

namespace {

// The fields after the first `skip` of a row.
std::vector<std::string> rest(const wsi_test::Row& row, std::size_t skip) {
  return std::vector<std::string>(row.fields.begin() + static_cast<long>(skip), row.fields.end());
}

std::vector<std::string> flattened(const wsi::NameValuePairs& pairs) {
  std::vector<std::string> out;
  for (const auto& pair : pairs) {
    out.push_back(pair.first);
    out.push_back(pair.second);
  }
  return out;
}

// The pieces a body is fed in: whole, split at `split`, or (split < 0) one byte at a time.
template <class Parser>
bool feedPieces(Parser& parser, const std::string& body, long split) {
  bool ok = true;
  if (split < 0) {
    for (char c : body)
      ok = parser.feed(&c, 1) && ok;
  } else {
    ok = parser.feed(body.data(), static_cast<std::size_t>(split));
    ok = parser.feed(body.data() + split, body.size() - static_cast<std::size_t>(split)) && ok;
  }
  return parser.finish() && ok;
}

TEST(UrlencodedParser, TableAtEverySplit) {
  for (const wsi_test::Row& row : wsi_test::readTable("urlencoded.tsv")) {
    const std::string& body = row[0];
    for (long split = -1; split <= static_cast<long>(body.size()); ++split) {
      wsi::UrlencodedParser parser;
      ASSERT_TRUE(feedPieces(parser, body, split)) << "line " << row.line;
      EXPECT_EQ(flattened(parser.pairs()), rest(row, 1))
          << "line " << row.line << " split " << split;
    }
  }
}

TEST(UrlencodedParser, EachLimitGivesItsError) {
  for (const wsi_test::Row& row : wsi_test::readTable("urlencoded_limits.tsv")) {
    wsi::UrlencodedLimits limits;
    limits.max_body = std::stoul(row[1]);
    limits.max_pairs = std::stoul(row[2]);
    limits.max_item = std::stoul(row[3]);
    for (long split = -1; split <= static_cast<long>(row[0].size()); ++split) {
      wsi::UrlencodedParser parser(limits);
      EXPECT_EQ(feedPieces(parser, row[0], split), row[4].empty()) << "line " << row.line;
      EXPECT_EQ(parser.error(), row[4]) << "line " << row.line << " split " << split;
      EXPECT_EQ(parser.status(), row[4].empty() ? wsi::form_ok : wsi::form_too_large);
    }
  }
}

// Records the parts as the table writes them: name, file name or "-", Content-Type, data.
struct Recorder : wsi::MultipartHandler {
  std::vector<std::string> fields;
  int open = 0;
  bool partBegin(const wsi::MultipartPart& part) override {
    fields.insert(fields.end(), {part.name, part.has_filename ? part.filename : "-",
                                 part.content_type, std::string()});
    ++open;
    return true;
  }
  bool partData(const char* data, std::size_t size) override {
    EXPECT_GT(size, 0u);
    fields.back().append(data, size);
    return true;
  }
  bool partEnd() override {
    --open;
    return true;
  }
};

const char* statusName(wsi::FormStatus status) {
  static const char* const names[] = {"ok",          "malformed", "too_large",
                                      "unsupported", "refused",   "failed"};
  return names[status];
}

TEST(MultipartParser, TableAtEverySplit) {
  for (const wsi_test::Row& row : wsi_test::readTable("multipart.tsv")) {
    const std::string& body = row[1];
    for (long split = -1; split <= static_cast<long>(body.size()); ++split) {
      Recorder recorder;
      wsi::MultipartParser parser(row[0], recorder);
      const bool ok = feedPieces(parser, body, split);
      EXPECT_EQ(statusName(parser.status()), row[2])
          << "line " << row.line << ": " << parser.error();
      EXPECT_EQ(ok, row[2] == "ok") << "line " << row.line;
      EXPECT_EQ(recorder.fields, rest(row, 3)) << "line " << row.line << " split " << split;
      if (ok) {
        EXPECT_EQ(recorder.open, 0) << "line " << row.line << ": a part was not ended";
      }
    }
  }
}

TEST(MultipartBoundary, Table) {
  for (const wsi_test::Row& row : wsi_test::readTable("multipart_boundary.tsv")) {
    std::string boundary = "unchanged";
    std::string error;
    const bool ok = wsi::multipartBoundary(row[0], boundary, error);
    if (row[1][0] == '!') {
      EXPECT_FALSE(ok) << "line " << row.line;
      EXPECT_EQ(error, row[1].substr(1)) << "line " << row.line;
      EXPECT_EQ(boundary, "unchanged") << "line " << row.line;
    } else {
      EXPECT_TRUE(ok) << "line " << row.line << ": " << error;
      EXPECT_EQ(boundary, row[1]) << "line " << row.line;
    }
  }
}

// A handler that refuses at one step: the parser stops with form_refused and asks nothing more.
struct Refuser : wsi::MultipartHandler {
  int refuse_at;
  int calls = 0;
  explicit Refuser(int at) : refuse_at(at) {}
  bool step() { return ++calls != refuse_at; }
  bool partBegin(const wsi::MultipartPart&) override { return step(); }
  bool partData(const char*, std::size_t) override { return step(); }
  bool partEnd() override { return step(); }
};

TEST(MultipartParser, HandlerRefusalStopsAtEachStep) {
  const std::string body = "--b\r\n\r\ndata\r\n--b\r\n\r\nmore\r\n--b--";
  for (int at = 1; at <= 6; ++at) {
    Refuser refuser(at);
    wsi::MultipartParser parser("b", refuser);
    EXPECT_FALSE(parser.feed(body.data(), body.size())) << "refused at call " << at;
    EXPECT_EQ(parser.status(), wsi::form_refused);
    EXPECT_EQ(refuser.calls, at);
    EXPECT_FALSE(parser.finish());
  }
}

}  // namespace
