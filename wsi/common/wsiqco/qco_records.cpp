// The connector's record block, read and written over standard streams.
#include "wsi/common/wsiqco/qco_records.hpp"

#include <algorithm>
#include <istream>
#include <ostream>

namespace wsi {
namespace qco_records {

namespace {

// The most bytes of a string read at once.
const unsigned long kReadPiece = 65536;

void writeByte(std::ostream& out, unsigned char b) {
  out.put(static_cast<char>(b));
}

// Reads 2 bytes as a big-endian number; false when the stream fails before both.
bool readU16(std::istream& in, unsigned long& value) {
  unsigned char b[2];
  if (!in.read(reinterpret_cast<char*>(b), 2)) return false;
  value = (static_cast<unsigned long>(b[0]) << 8) | b[1];
  return true;
}

}  // namespace

void writeString(std::ostream& out, const std::string& s) {
  const std::string::size_type n = s.size();
  if (n <= 0x7FFF) {
    writeByte(out, static_cast<unsigned char>(n >> 8));
    writeByte(out, static_cast<unsigned char>(n & 0xFF));
  } else if (n <= 0x7FFFFFFF) {
    const unsigned long v = static_cast<unsigned long>(n) | 0x80000000UL;
    for (int shift = 24; shift >= 0; shift -= 8)
      writeByte(out, static_cast<unsigned char>((v >> shift) & 0xFF));
  } else {
    writeByte(out, 0);
    writeByte(out, 0);
    return;
  }
  out.write(s.data(), static_cast<std::streamsize>(n));
}

void writeRecord(std::ostream& out, Type type, const std::string& value) {
  writeByte(out, type);
  writeString(out, value);
}

void writeRecord(std::ostream& out, Type type, const std::string& name, const std::string& value) {
  writeByte(out, type);
  writeString(out, name);
  writeString(out, value);
}

void writeStatus(std::ostream& out, int code) {
  const unsigned int bits = static_cast<unsigned int>(code);
  writeByte(out, status);
  writeByte(out, static_cast<unsigned char>((bits >> 8) & 0xFF));
  writeByte(out, static_cast<unsigned char>(bits & 0xFF));
}

void writeEnd(std::ostream& out) {
  writeByte(out, end);
}

bool readType(std::istream& in, unsigned char& type) {
  char byte = 0;
  if (!in.read(&byte, 1)) return false;
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
    if (!in.read(&s[at], static_cast<std::streamsize>(piece))) {
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
