// The connector's record block: its record types and its strings, read from the stream buffer of
// a standard stream and built in a string to be written in one piece. The one definition of the
// format, for the library's connector request and response and for the web server's side of the
// peer tool; not part of the library's public interface.
#ifndef WSI_COMMON_WSIQCO_QCO_RECORDS_HPP
#define WSI_COMMON_WSIQCO_QCO_RECORDS_HPP

#include <istream>
#include <string>

namespace wsi {
namespace qco_records {

// The type byte that begins every record.
enum Type : unsigned char {
  header = 0x01,        // name string, value string: an HTTP header
  variable = 0x02,      // name string, value string: a server variable (requests only)
  status = 0x03,        // 2 bytes, big-endian: the response status
  content_type = 0x04,  // one string: the content type
  end = 0x80,           // ends the block
  end_alt = 0xFF        // ends a request block as well
};

// How the long form of a length (4 bytes, top bit set) is read back.
enum class LongLength {
  // As the library reads a request block: the two 16-bit halves ORed together without shifting
  // the first, so only lengths up to 0xFFFF survive. Kept as it is: existing web servers send
  // nothing longer and hosts rely on it.
  halves_ored,
  // As the web server reads a response block: all 31 bits.
  full
};

// The longest string that a request record carries intact (see LongLength::halves_ored).
const std::string::size_type kMaxRequestString = 0xFFFF;

// Appends `s` to `block` as a string: 2 length bytes, big-endian, up to 0x7FFF; 4 bytes of the
// length with the top bit set up to 0x7FFFFFFF; then the bytes. A longer string goes out as the 2
// bytes 0x00 0x00 and nothing else, which the web server reads as empty. A block is built whole
// and then written with one write, so the stream buffer sees the bytes in one piece.
void appendString(std::string& block, const std::string& s);

// Appends a record of `type` whose body is the one string `value` (content_type).
void appendRecord(std::string& block, Type type, const std::string& value);

// Appends a record of `type` whose body is the strings `name` and `value` (header, variable).
void appendRecord(std::string& block, Type type, const std::string& name, const std::string& value);

// Appends the status record: the type byte, then the low 16 bits of `code`, big-endian.
void appendStatus(std::string& block, int code);

// Appends the end record.
void appendEnd(std::string& block);

// The readers take their bytes straight from the stream's buffer (sgetn) and leave the stream in
// the state that std::istream::read would: failbit when it was not good before, eofbit and
// failbit when the buffer ran dry first, badbit when the buffer threw.

// Reads one type byte into `type`. Returns false, leaving `type` alone, when the stream has
// failed or ends before it.
bool readType(std::istream& in, unsigned char& type);

// Reads one string into `s`: 2 length bytes, 2 more when the top bit of the first two is set
// (put together as `form` says), then that many bytes. Returns false, with `s` empty, when the
// stream fails before the string is whole. The bytes are read in pieces, so what is allocated
// grows with what arrives, never with what a length announced.
bool readString(std::istream& in, std::string& s, LongLength form);

// Reads the 2 bytes of a status record's body into `code`, as a signed 16-bit number (0xFFFF is
// -1). Returns false, leaving `code` alone, when the stream fails before both bytes.
bool readStatus(std::istream& in, int& code);

}  // namespace qco_records
}  // namespace wsi

#endif  // WSI_COMMON_WSIQCO_QCO_RECORDS_HPP
