// The stream buffer that limits the posted data of a CGI request to CONTENT_LENGTH bytes.
#include <algorithm>
#include <cstdint>
#include <streambuf>

#include <wsi/cgi_handle.hpp>

namespace wsi {

CgiBodyBuf::CgiBodyBuf(std::streambuf* source, std::uint64_t limit)
    : source_(source), remaining_(limit), short_(false) {
  setg(buffer_, buffer_, buffer_);
}

CgiBodyBuf::~CgiBodyBuf() {}

bool CgiBodyBuf::complete() const {
  return !short_;
}

// Refills the buffer with at most the bytes still due. A source that ends or fails before them
// marks the data short and ends it here for good.
CgiBodyBuf::int_type CgiBodyBuf::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  const std::streamsize got = _readSource(buffer_, static_cast<std::streamsize>(sizeof buffer_));
  if (got == 0) return traits_type::eof();
  setg(buffer_, buffer_, buffer_ + got);
  return traits_type::to_int_type(*gptr());
}

// Hands out what the buffer holds, then reads the rest straight from the source, so that large
// reads are not copied twice.
std::streamsize CgiBodyBuf::xsgetn(char* s, std::streamsize n) {
  const std::streamsize buffered = std::min<std::streamsize>(n, egptr() - gptr());
  std::copy(gptr(), gptr() + buffered, s);
  gbump(static_cast<int>(buffered));
  std::streamsize done = buffered;
  while (done < n) {
    const std::streamsize got = _readSource(s + done, n - done);
    if (got == 0) break;
    done += got;
  }
  return done;
}

std::streamsize CgiBodyBuf::_readSource(char* s, std::streamsize n) {
  if (short_ || remaining_ == 0) return 0;
  const std::streamsize wanted = static_cast<std::streamsize>(
      std::min<std::uint64_t>(remaining_, static_cast<std::uint64_t>(n)));
  const std::streamsize got = source_ == nullptr ? 0 : source_->sgetn(s, wanted);
  if (got <= 0) {
    short_ = true;
    return 0;
  }
  remaining_ -= static_cast<std::uint64_t>(got);
  return got;
}

}  // namespace wsi
