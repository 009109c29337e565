// What the fuzz targets check besides "no crash". A failed check prints the property that broke
// and aborts, so that libFuzzer (or the replay program) keeps the input that broke it.
#ifndef WSI_FUZZ_FUZZ_CHECK_HPP
#define WSI_FUZZ_FUZZ_CHECK_HPP

#include <string>

#include <wsi/interface.hpp>

// Aborts with the condition's text, file and line when the condition is false. Variadic, so that a
// condition may hold template arguments.
#define FUZZ_CHECK(...) \
  ((__VA_ARGS__) ? static_cast<void>(0) : ::fuzz::checkFailed(#__VA_ARGS__, __FILE__, __LINE__))

namespace fuzz {

// Reports a failed check on standard error and aborts.
[[noreturn]] void checkFailed(const char* condition, const char* file, int line);

// Whether `text` holds a line feed.
bool hasLineFeed(const std::string& text);

// The query arguments [begin, end) that the parser stored for `query`: at most one for each '&'
// plus one, each with a non-empty name and value, no two names equal as the tables compare them.
void checkQueryArgs(wsi::OrderedNameTable::const_iterator begin,
                    wsi::OrderedNameTable::const_iterator end, const std::string& query);

// What the tables of every request hold: the query arguments of QueryString(), and look-ups
// that find every entry that the iterators list, with its value.
void checkTables(const wsi::Request& request);

// What every request that was read holds: the server variables behind HttpURL(), URL() and
// QueryString() with the same texts, the query arguments of QueryString(), and look-ups that find
// every entry that the iterators list, with its value.
void checkRequest(const wsi::Request& request);

// The HTTP text that the stream back end wrote for a response whose body is `body`: it starts
// with "HTTP/1.1 " and ends with the body. When `plain` (no header name or value given to the
// response held a line feed), the only empty line is the one just before the body.
void checkResponseText(const std::string& text, const std::string& body, bool plain);

}  // namespace fuzz

#endif  // WSI_FUZZ_FUZZ_CHECK_HPP
