// The web server's side of the connector's record blocks: a request turned into its record block,
// a response's record block turned back into HTTP/1.1 text.
#ifndef WSI_TOOLS_PEER_RECORDS_HPP
#define WSI_TOOLS_PEER_RECORDS_HPP

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include <wsi/interface.hpp>

namespace peer {

// The record block of `request`: one server-variable record for each server variable, then one
// header record for each header in insertion order, except Content-Type, which becomes the
// content-type record; then the end record. Returns false, with `error` set, when a name or value
// is longer than a request record carries (wsi::qco_records::kMaxRequestString).
bool encodeRequestBlock(const wsi::Request& request, std::string& block, std::string& error);

// A response's header block as the web server reads it.
struct ResponseHead {
  int status = -1;  // the status record's 16 bits as a signed number; -1 when there was none
  bool has_content_type = false;
  std::string content_type;
  std::vector<std::pair<std::string, std::string>> headers;  // in the order received
};

// Reads the records of a response's header block from `in`, up to and with its end record.
// Returns false, with `error` set, when the block is malformed or cut short.
bool readResponseHead(std::istream& in, ResponseHead& head, std::string& error);

// Reads a response message from `in` (its record block, then the body up to the end of the
// stream) and writes it to `out` as the stream back end would: the status line with its
// description, the Content-Type line, the other headers in the order received, an empty line and
// the body. Returns false, with `error` set, when the block is malformed or cut short; the body
// is copied as far as it goes.
bool decodeResponse(std::istream& in, std::ostream& out, std::string& error);

}  // namespace peer

#endif  // WSI_TOOLS_PEER_RECORDS_HPP
