// FastCGI record framing: the record types and status codes of the protocol, and the writers of
// the records that a responder sends. Pure byte work: nothing here touches a socket.
#ifndef WSI_COMMON_WSIFCGI_FCGI_RECORD_HPP
#define WSI_COMMON_WSIFCGI_FCGI_RECORD_HPP

#include <cstddef>
#include <cstdint>
#include <string>

namespace wsi {
namespace fcgi {

const unsigned char kVersion = 1;
const std::size_t kHeaderSize = 8;
// The largest content one record carries: its length field has 16 bits.
const std::size_t kMaxContent = 65535;

// Record types.
enum RecordType {
  kBeginRequest = 1,
  kAbortRequest = 2,
  kEndRequest = 3,
  kParams = 4,
  kStdin = 5,
  kStdout = 6,
  kStderr = 7,
  kData = 8,
  kGetValues = 9,
  kGetValuesResult = 10,
  kUnknownType = 11
};

// The protocol status of an end-request record.
enum ProtocolStatus { kRequestComplete = 0, kCantMpxConn = 1, kOverloaded = 2, kUnknownRole = 3 };

const unsigned kRoleResponder = 1;
const unsigned char kFlagKeepConn = 1;

// The fixed part of every record.
struct RecordHeader {
  unsigned version;
  unsigned type;
  std::uint16_t request_id;
  std::uint16_t content_length;
  unsigned padding_length;
};

// Reads the 8 header bytes at `bytes` (the caller has them all).
RecordHeader parseHeader(const unsigned char* bytes);

// Writes the 8 header bytes of a record with `content_length` content and `padding_length`
// padding bytes to `out`.
void encodeHeader(char* out, unsigned type, std::uint16_t request_id, std::size_t content_length,
                  std::size_t padding_length);

// Appends one record of `type` for `request_id` with the `size` bytes at `data` (at most
// kMaxContent), padded with zero bytes to a multiple of 8 as the protocol recommends.
void appendRecord(std::string& out, unsigned type, std::uint16_t request_id, const char* data,
                  std::size_t size);

// Appends `size` bytes of a stream (stdout, stderr) as records of at most kMaxContent bytes each;
// nothing when `size` is 0 (an empty record would end the stream).
void appendStream(std::string& out, unsigned type, std::uint16_t request_id, const char* data,
                  std::size_t size);

// Appends the end-request record: the application status (big-endian) and the protocol status.
void appendEndRequest(std::string& out, std::uint16_t request_id, std::uint32_t app_status,
                      ProtocolStatus status);

// Appends one name-value pair in the protocol's length encoding: lengths below 128 in one byte,
// others in four with the top bit set. Lengths must stay below 2^31.
void appendPair(std::string& out, const std::string& name, const std::string& value);

}  // namespace fcgi
}  // namespace wsi

#endif  // WSI_COMMON_WSIFCGI_FCGI_RECORD_HPP
