// The name-table blocks shared by the diagnostic dumps.
#include "wsi/common/dump.hpp"

#include <string>

namespace wsi {
namespace {

// Writes the lines of one block: the title, then "  None." or "  [k] name=value" for each entry
// of [begin, end) in iteration order.
template <class Iterator>
void dumpEntries(std::ostream& os, const char* title, Iterator begin, Iterator end) {
  os << title << std::endl;
  if (begin == end) {
    os << "  None." << std::endl;
    return;
  }
  unsigned long k = 0;
  for (Iterator it = begin; it != end; ++it)
    os << "  [" << ++k << "] " << it->first << '=' << it->second << std::endl;
}

}  // namespace

void _dumpMap(std::ostream& os, const char* title, const OrderedNameTable& map) {
  dumpEntries(os, title, map.begin(), map.end());
}

void _dumpList(std::ostream& os, const char* title,
               const std::vector<std::pair<std::string, std::string>>& list) {
  dumpEntries(os, title, list.begin(), list.end());
}

void _dumpServerVariables(std::ostream& os, const NameTable& map) {
  dumpEntries(os, "Server Variable(s):", map.begin(), map.end());
}

void _dumpRequestState(std::ostream& os, Http::MethodId method, const std::string& httpUrl,
                       const std::string& url, const std::string& queryString,
                       const OrderedNameTable& queryArgs, const OrderedNameTable& headers,
                       const NameTable& variables) {
  os << "Method=" << Http::MethodNameOf<wx::encoding::host>(method) << std::endl;
  os << "HttpURL=" << httpUrl << std::endl;
  os << "URL=" << url << std::endl;
  os << "QueryString=" << queryString << std::endl;
  _dumpMap(os, "Query Argument(s):", queryArgs);
  _dumpMap(os, "HTTP Header(s):", headers);
  _dumpServerVariables(os, variables);
}

void _dumpResponseSettings(std::ostream& os, Http::Status status, const std::string& type,
                           const std::string& encoding, bool lengthSet, unsigned long length,
                           bool headersSent) {
  os << "HttpStatus=" << static_cast<int>(status) << ' '
     << Http::StatusDesc<wx::encoding::host>(status) << std::endl;
  os << "ContentType=" << type << std::endl;
  os << "ContentEncoding=" << encoding << std::endl;
  if (lengthSet) os << "ContentLength=" << length << std::endl;
  os << "HeadersSent=" << std::boolalpha << headersSent << std::noboolalpha << std::endl;
}

void _dumpResponseState(std::ostream& os, Http::Status status, const std::string& type,
                        const std::string& encoding, bool lengthSet, unsigned long length,
                        bool headersSent, const OrderedNameTable& headers) {
  _dumpResponseSettings(os, status, type, encoding, lengthSet, length, headersSent);
  _dumpMap(os, "HTTP Header(s):", headers);
}

void _dumpExchange(std::ostream& os, const Request& request, const Response& response) {
  os << "[IN]" << std::endl;
  request._dump(os);
  os << "[OUT]" << std::endl;
  response._dump(os);
}

}  // namespace wsi
