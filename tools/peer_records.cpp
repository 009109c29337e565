// The web server's side of the connector's record blocks.
#include "peer_records.hpp"

#include <strings.h>
#include <cstdint>
#include <istream>
#include <ostream>
#include <utility>
#include <vector>

#include <wsi/http.hpp>

namespace peer {

namespace {

const unsigned char kHeaderRecord = 0x01;
const unsigned char kVariableRecord = 0x02;
const unsigned char kStatusRecord = 0x03;
const unsigned char kContentTypeRecord = 0x04;
const unsigned char kEndRecord = 0x80;

// Appends one string: 2 length bytes up to 0x7FFF, else 4 bytes with the top bit set.
void appendString(std::string& block, const std::string& s) {
  const unsigned long n = s.size();
  if (n > 0x7FFF) {
    block += static_cast<char>(((n | 0x80000000UL) >> 24) & 0xFF);
    block += static_cast<char>((n >> 16) & 0xFF);
  }
  block += static_cast<char>((n >> 8) & 0xFF);
  block += static_cast<char>(n & 0xFF);
  block += s;
}

bool appendRecord(std::string& block, unsigned char type, const std::string* name,
                  const std::string& value, std::string& error) {
  for (const std::string* s : {name, &value}) {
    if (s != nullptr && s->size() > kMaxRequestString) {
      error = "'" + (name ? *name : std::string("Content-Type")).substr(0, 40) +
              "' is longer than 65535 bytes, which a request record cannot carry";
      return false;
    }
  }
  block += static_cast<char>(type);
  if (name != nullptr) appendString(block, *name);
  appendString(block, value);
  return true;
}

// Reads `n` bytes, in pieces, so that what is kept grows with what arrives, never with what a
// length announced.
bool readBytes(std::istream& in, unsigned long n, std::string& out) {
  char buf[65536];
  while (n > 0) {
    const std::streamsize want = n < sizeof buf ? static_cast<std::streamsize>(n) : sizeof buf;
    if (!in.read(buf, want)) return false;
    out.append(buf, static_cast<std::size_t>(want));
    n -= static_cast<unsigned long>(want);
  }
  return true;
}

unsigned long readU16(std::istream& in, bool& ok) {
  unsigned char b[2];
  ok = static_cast<bool>(in.read(reinterpret_cast<char*>(b), 2));
  return ok ? (static_cast<unsigned long>(b[0]) << 8) | b[1] : 0;
}

// Reads one string as the response side writes it: 2 length bytes, or 4 with the top bit set.
bool readString(std::istream& in, std::string& s) {
  bool ok = false;
  unsigned long length = readU16(in, ok);
  if (!ok) return false;
  if (length & 0x8000) {
    const unsigned long low = readU16(in, ok);
    if (!ok) return false;
    length = ((length & 0x7FFF) << 16) | low;
  }
  return readBytes(in, length, s);
}

}  // namespace

bool readResponseHead(std::istream& in, ResponseHead& head, std::string& error) {
  for (;;) {
    const int type = in.get();
    if (type == std::char_traits<char>::eof()) {
      error = "the response ended inside its header block";
      return false;
    }
    bool ok = true;
    switch (type) {
      case kStatusRecord: {
        const unsigned long code = readU16(in, ok);
        head.status = static_cast<std::int16_t>(code);  // sent as 16 bits: -1 is 0xFFFF
        break;
      }
      case kContentTypeRecord:
        head.has_content_type = true;
        ok = readString(in, head.content_type);
        break;
      case kHeaderRecord:
        head.headers.emplace_back();
        ok =
            readString(in, head.headers.back().first) && readString(in, head.headers.back().second);
        break;
      case kEndRecord:
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
    if (!appendRecord(block, kVariableRecord, &it->first, it->second, error)) return false;
  }
  for (auto it = request.HttpHeaders_begin(); it != request.HttpHeaders_end(); ++it) {
    const bool is_type = strcasecmp(it->first.c_str(), "Content-Type") == 0;
    if (!appendRecord(block, is_type ? kContentTypeRecord : kHeaderRecord,
                      is_type ? nullptr : &it->first, it->second, error))
      return false;
  }
  block += static_cast<char>(kEndRecord);
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
