// The name-table blocks shared by the diagnostic dumps of every request and response.
#ifndef WSI_COMMON_DUMP_HPP
#define WSI_COMMON_DUMP_HPP

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <wsi/http.hpp>
#include <wsi/interface.hpp>

namespace wsi {

// Writes `title` on a line of its own, then "  None." when `map` is empty, otherwise one line
// "  [k] name=value" for each entry in order of first insertion, k counting from 1. Every line
// ends with std::endl.
void _dumpMap(std::ostream& os, const char* title, const OrderedNameTable& map);

// The same block for a list of name/value pairs, numbered in list order.
void _dumpList(std::ostream& os, const char* title,
               const std::vector<std::pair<std::string, std::string>>& list);

// The "Server Variable(s):" block: the same lines as _dumpMap, numbered in the table's name
// order.
void _dumpServerVariables(std::ostream& os, const NameTable& map);

// The request lines common to both back ends: "Method=", "HttpURL=", "URL=", "QueryString=",
// then the query-argument, header and server-variable blocks.
void _dumpRequestState(std::ostream& os, Http::MethodId method, const std::string& httpUrl,
                       const std::string& url, const std::string& queryString,
                       const OrderedNameTable& queryArgs, const OrderedNameTable& headers,
                       const NameTable& variables);

// The response lines before the header block: "HttpStatus=", "ContentType=", "ContentEncoding=",
// "ContentLength=" when `lengthSet`, "HeadersSent=" (the flag as a word, with boolalpha cleared
// right after it).
void _dumpResponseSettings(std::ostream& os, Http::Status status, const std::string& type,
                           const std::string& encoding, bool lengthSet, unsigned long length,
                           bool headersSent);

// The response lines common to both back ends: the settings above and the header block.
void _dumpResponseState(std::ostream& os, Http::Status status, const std::string& type,
                        const std::string& encoding, bool lengthSet, unsigned long length,
                        bool headersSent, const OrderedNameTable& headers);

// A handle's dump: "[IN]", the request's dump, "[OUT]", the response's dump.
void _dumpExchange(std::ostream& os, const Request& request, const Response& response);

}  // namespace wsi

#endif  // WSI_COMMON_DUMP_HPP
