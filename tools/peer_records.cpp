// The web server's side of the connector's record blocks.
#include "peer_records.hpp"

#include <strings.h>
#include <cstdint>
#include <istream>
#include <ostream>
#include <utility>
#include <vector>

#include <wsi/http.hpp>
#include "wsi/common/wsiqco/qco_records.hpp"

namespace peer {

namespace {

namespace records = wsi::qco_records;

// Writes one record of `type` whose strings are `name` (unless null) and `value`. Returns false,
// with `error` set, when either is longer than a request record carries.
bool appendRecord(std::string& block, records::Type type, const std::string* name,
                  const std::string& value, std::string& error) {
  for (const std::string* s : {name, &value}) {
    if (s != nullptr && s->size() > records::kMaxRequestString) {
      error = "'" + (name ? *name : std::string("Content-Type")).substr(0, 40) +
              "' is longer than 65535 bytes, which a request record cannot carry";
      return false;
    }
  }
  if (name != nullptr)
    records::appendRecord(block, type, *name, value);
  else
    records::appendRecord(block, type, value);
  return true;
}

}  // namespace

bool readResponseHead(std::istream& in, ResponseHead& head, std::string& error) {
  for (;;) {
    unsigned char type = 0;
    if (!records::readType(in, type)) {
      error = "the response ended inside its header block";
      return false;
    }
    bool ok = true;
    switch (type) {
      case records::status:
        ok = records::readStatus(in, head.status);
        break;
      case records::content_type:
        head.has_content_type = true;
        ok = records::readString(in, head.content_type, records::LongLength::full);
        break;
      case records::header:
        head.headers.emplace_back();
        ok = records::readString(in, head.headers.back().first, records::LongLength::full) &&
             records::readString(in, head.headers.back().second, records::LongLength::full);
        break;
      case records::end:
        return true;
      default:
        error = "unknown record type " + std::to_string(type) + " in the response's header block";
        return false;
    }
    if (!ok) {
      error = "the response ended inside a record of its header block";
      return false;
    }
  }
}

namespace {

void writeHead(std::ostream& out, const ResponseHead& head) {
  out << "HTTP/1.1 " << head.status << ' '
      << wsi::Http::StatusDesc<wx::encoding::host>(static_cast<wsi::Http::Status>(head.status))
      << '\n';
  if (head.has_content_type) out << "Content-Type: " << head.content_type << '\n';
  for (const auto& h : head.headers)
    out << h.first << ": " << h.second << '\n';
  out << '\n';
}

}  // namespace

bool encodeRequestBlock(const wsi::Request& request, std::string& block, std::string& error) {
  block.clear();
  for (auto it = request.ServerVariables_begin(); it != request.ServerVariables_end(); ++it) {
    if (!appendRecord(block, records::variable, &it->first, it->second, error)) return false;
  }
  for (auto it = request.HttpHeaders_begin(); it != request.HttpHeaders_end(); ++it) {
    const bool is_type = strcasecmp(it->first.c_str(), "Content-Type") == 0;
    if (!appendRecord(block, is_type ? records::content_type : records::header,
                      is_type ? nullptr : &it->first, it->second, error))
      return false;
  }
  records::appendEnd(block);
  return true;
}

bool decodeResponse(std::istream& in, std::ostream& out, std::string& error) {
  ResponseHead head;
  if (!readResponseHead(in, head, error)) return false;
  writeHead(out, head);
  char buf[65536];
  while (in.read(buf, sizeof buf) || in.gcount() > 0)
    out.write(buf, in.gcount());
  return true;
}

}  // namespace peer
