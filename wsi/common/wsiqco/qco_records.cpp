// The connector's record block, read from a stream buffer and built in a string.
#include "wsi/common/wsiqco/qco_records.hpp"

#include <algorithm>
#include <istream>

namespace wsi {
namespace qco_records {

namespace {

// The longest read taken byte by byte instead of through sgetn.
const std::streamsize kSmallRead = 4;

// The most bytes of a string read at once.
const unsigned long kReadPiece = 65536;

void appendByte(std::string& block, unsigned long b) {
  block.push_back(static_cast<char>(b & 0xFF));
}

// Reads `n` bytes into `p` from the stream's buffer, in place of std::istream::read and with the
// state it would leave. Returns true when all `n` arrived.
bool readBytes(std::istream& in, char* p, std::streamsize n) {
  if (!in.good()) {
    in.setstate(std::ios::failbit);
    return false;
  }
  if (in.tie() != nullptr) in.tie()->flush();
  std::streambuf* buf = in.rdbuf();
  std::streamsize got = 0;
  try {
    if (n > kSmallRead) {
      got = buf->sgetn(p, n);
    } else {
      // Type bytes and lengths one byte at a time, inline while the buffer holds them.
      for (std::streambuf::int_type c; got < n; ++got, ++p) {
        if (std::streambuf::traits_type::eq_int_type(c = buf->sbumpc(),
                                                     std::streambuf::traits_type::eof()))
          break;
        *p = std::streambuf::traits_type::to_char_type(c);
      }
    }
  } catch (...) {
    in.setstate(std::ios::badbit);  // throws when the stream asks for exceptions on badbit
    return false;
  }
  if (got == n) return true;
  in.setstate(std::ios::eofbit | std::ios::failbit);
  return false;
}

// Reads 2 bytes as a big-endian number; false when the stream fails before both.
bool readU16(std::istream& in, unsigned long& value) {
  unsigned char b[2];
  if (!readBytes(in, reinterpret_cast<char*>(b), 2)) return false;
  value = (static_cast<unsigned long>(b[0]) << 8) | b[1];
  return true;
}

}  // namespace

void appendString(std::string& block, const std::string& s) {
  const std::string::size_type n = s.size();
  if (n <= 0x7FFF) {
    appendByte(block, n >> 8);
    appendByte(block, n);
  } else if (n <= 0x7FFFFFFF) {
    const unsigned long v = static_cast<unsigned long>(n) | 0x80000000UL;
    for (int shift = 24; shift >= 0; shift -= 8)
      appendByte(block, v >> shift);
  } else {
    appendByte(block, 0);
    appendByte(block, 0);
    return;
  }
  block.append(s);
}

void appendRecord(std::string& block, Type type, const std::string& value) {
  appendByte(block, type);
  appendString(block, value);
}

void appendRecord(std::string& block, Type type, const std::string& name,
                  const std::string& value) {
  appendByte(block, type);
  appendString(block, name);
  appendString(block, value);
}

void appendStatus(std::string& block, int code) {
  const unsigned int bits = static_cast<unsigned int>(code);
  appendByte(block, status);
  appendByte(block, bits >> 8);
  appendByte(block, bits);
}

void appendEnd(std::string& block) {
  appendByte(block, end);
}

bool readType(std::istream& in, unsigned char& type) {
  char byte = 0;
  if (!readBytes(in, &byte, 1)) return false;
  type = static_cast<unsigned char>(byte);
  return true;
}

bool readString(std::istream& in, std::string& s, LongLength form) {
  s.clear();
  unsigned long length = 0;
  if (!readU16(in, length)) return false;
  if (length & 0x8000) {
    unsigned long low = 0;
    if (!readU16(in, low)) return false;
    length = form == LongLength::full ? ((length & 0x7FFF) << 16) | low : (length & 0x7FFF) | low;
  }
  while (length > 0) {
    const unsigned long piece = std::min(length, kReadPiece);
    const std::string::size_type at = s.size();
    s.resize(at + piece);
    if (!readBytes(in, &s[at], static_cast<std::streamsize>(piece))) {
      s.clear();
      return false;
    }
    length -= piece;
  }
  return true;
}

bool readStatus(std::istream& in, int& code) {
  unsigned long bits = 0;
  if (!readU16(in, bits)) return false;
  code = bits & 0x8000 ? static_cast<int>(bits) - 0x10000 : static_cast<int>(bits);
  return true;
}

}  // namespace qco_records
}  // namespace wsi
