// What the fuzz targets check besides "no crash".
#include "fuzz_check.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

namespace fuzz {

void checkFailed(const char* condition, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, condition);
  std::abort();
}

bool hasLineFeed(const std::string& text) {
  return text.find('\n') != std::string::npos;
}

void checkQueryArgs(wsi::OrderedNameTable::const_iterator begin,
                    wsi::OrderedNameTable::const_iterator end, const std::string& query) {
  const std::size_t pairs =
      static_cast<std::size_t>(std::count(query.begin(), query.end(), '&')) + 1;
  std::set<std::string, wsi::less_nocase_eng> names;
  std::size_t count = 0;
  for (wsi::OrderedNameTable::const_iterator it = begin; it != end; ++it) {
    FUZZ_CHECK(!it->first.empty());
    FUZZ_CHECK(!it->second.empty());
    FUZZ_CHECK(names.insert(it->first).second);
    ++count;
  }
  FUZZ_CHECK(count <= pairs);
}

namespace {

// Every entry of [begin, end) is found by `lookup` under its own name, with its own value.
template <class Iterator, class Lookup>
void checkLookups(Iterator begin, Iterator end, Lookup lookup) {
  for (Iterator it = begin; it != end; ++it) {
    const std::string* found = lookup(it->first);
    FUZZ_CHECK(found != nullptr);
    FUZZ_CHECK(*found == it->second);
  }
}

}  // namespace

void checkRequest(const wsi::Request& request) {
  const std::string* http_url = request.ServerVariables("HTTP_URL");
  const std::string* url = request.ServerVariables("URL");
  const std::string* query = request.ServerVariables("QUERY_STRING");
  FUZZ_CHECK(http_url != nullptr && *http_url == request.HttpURL());
  FUZZ_CHECK(url != nullptr && *url == request.URL());
  FUZZ_CHECK(query != nullptr && *query == request.QueryString());
  checkTables(request);
}

void checkTables(const wsi::Request& request) {
  checkQueryArgs(request.QueryArgs_begin(), request.QueryArgs_end(), request.QueryString());
  checkLookups(request.QueryArgs_begin(), request.QueryArgs_end(),
               [&](const std::string& name) { return request.QueryArg(name); });
  checkLookups(request.HttpHeaders_begin(), request.HttpHeaders_end(),
               [&](const std::string& name) { return request.HttpHeaders(name); });
  checkLookups(request.ServerVariables_begin(), request.ServerVariables_end(),
               [&](const std::string& name) { return request.ServerVariables(name); });
}

void checkResponseText(const std::string& text, const std::string& body, bool plain) {
  FUZZ_CHECK(text.compare(0, 9, "HTTP/1.1 ") == 0);
  FUZZ_CHECK(text.size() >= body.size());
  const std::string::size_type head = text.size() - body.size();
  FUZZ_CHECK(text.compare(head, std::string::npos, body) == 0);
  if (!plain) return;
  FUZZ_CHECK(head >= 2 && text.compare(head - 2, 2, "\n\n") == 0);
  FUZZ_CHECK(text.find("\n\n") == head - 2);
}

}  // namespace fuzz
