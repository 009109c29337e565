// FastCGI record framing.
#include "wsi/common/wsifcgi/fcgi_record.hpp"

namespace wsi {
namespace fcgi {

namespace {

void appendLength(std::string& out, std::size_t length) {
  if (length < 128) {
    out += static_cast<char>(length);
    return;
  }
  out += static_cast<char>(((length >> 24) & 0x7F) | 0x80);
  out += static_cast<char>((length >> 16) & 0xFF);
  out += static_cast<char>((length >> 8) & 0xFF);
  out += static_cast<char>(length & 0xFF);
}

}  // namespace

RecordHeader parseHeader(const unsigned char* bytes) {
  RecordHeader header;
  header.version = bytes[0];
  header.type = bytes[1];
  header.request_id = static_cast<std::uint16_t>((bytes[2] << 8) | bytes[3]);
  header.content_length = static_cast<std::uint16_t>((bytes[4] << 8) | bytes[5]);
  header.padding_length = bytes[6];
  return header;
}

void encodeHeader(char* out, unsigned type, std::uint16_t request_id, std::size_t content_length,
                  std::size_t padding_length) {
  out[0] = static_cast<char>(kVersion);
  out[1] = static_cast<char>(type);
  out[2] = static_cast<char>(request_id >> 8);
  out[3] = static_cast<char>(request_id & 0xFF);
  out[4] = static_cast<char>(content_length >> 8);
  out[5] = static_cast<char>(content_length & 0xFF);
  out[6] = static_cast<char>(padding_length);
  out[7] = 0;
}

void appendRecord(std::string& out, unsigned type, std::uint16_t request_id, const char* data,
                  std::size_t size) {
  const std::size_t padding = (8 - size % 8) % 8;
  char header[kHeaderSize];
  encodeHeader(header, type, request_id, size, padding);
  out.append(header, kHeaderSize);
  if (size > 0) out.append(data, size);
  out.append(padding, '\0');
}

void appendStream(std::string& out, unsigned type, std::uint16_t request_id, const char* data,
                  std::size_t size) {
  while (size > 0) {
    const std::size_t part = size < kMaxContent ? size : kMaxContent;
    appendRecord(out, type, request_id, data, part);
    data += part;
    size -= part;
  }
}

void appendEndRequest(std::string& out, std::uint16_t request_id, std::uint32_t app_status,
                      ProtocolStatus status) {
  const char body[8] = {static_cast<char>(app_status >> 24),
                        static_cast<char>((app_status >> 16) & 0xFF),
                        static_cast<char>((app_status >> 8) & 0xFF),
                        static_cast<char>(app_status & 0xFF),
                        static_cast<char>(status),
                        0,
                        0,
                        0};
  appendRecord(out, kEndRequest, request_id, body, sizeof body);
}

void appendPair(std::string& out, const std::string& name, const std::string& value) {
  appendLength(out, name.size());
  appendLength(out, value.size());
  out += name;
  out += value;
}

}  // namespace fcgi
}  // namespace wsi
