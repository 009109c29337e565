// The responder's side of one FastCGI connection, as pure byte work.
#include "wsi/common/wsifcgi/fcgi_codec.hpp"

#include <algorithm>
#include <cstring>

namespace wsi {
namespace fcgi {

namespace {

// The names a get-values record may ask for that this responder answers.
const char kMaxConns[] = "FCGI_MAX_CONNS";
const char kMaxReqs[] = "FCGI_MAX_REQS";
const char kMpxsConns[] = "FCGI_MPXS_CONNS";

}  // namespace

Codec::Codec(const PairLimits& limits, std::uint32_t max_conns)
    : limits_(limits),
      max_conns_(max_conns),
      header_bytes_(0),
      header_(),
      content_left_(0),
      padding_left_(0),
      phase_(kNoRequest),
      request_id_(0),
      keep_connection_(false),
      aborted_(false),
      params_(limits) {}

bool Codec::fail(const std::string& why) {
  error_ = why;
  return false;
}

bool Codec::feed(const char* data, std::size_t size) {
  while (size > 0 && !failed()) {
    std::size_t used;
    if (header_bytes_ < kHeaderSize) {
      used = std::min(size, kHeaderSize - header_bytes_);
      std::memcpy(header_bytes_buffer_ + header_bytes_, data, used);
      header_bytes_ += used;
      if (header_bytes_ == kHeaderSize && headerDone() && content_left_ == 0) recordDone();
    } else if (content_left_ > 0) {
      used = takeContent(data, size);
      if (content_left_ == 0) recordDone();
    } else {
      used = std::min(size, padding_left_);
      padding_left_ -= used;
    }
    data += used;
    size -= used;
    if (header_bytes_ == kHeaderSize && content_left_ == 0 && padding_left_ == 0) header_bytes_ = 0;
  }
  return !failed();
}

bool Codec::headerDone() {
  header_ = parseHeader(header_bytes_buffer_);
  if (header_.version != kVersion)
    return fail("a record of protocol version " + std::to_string(header_.version));
  content_left_ = header_.content_length;
  padding_left_ = header_.padding_length;
  body_.clear();
  return true;
}

std::size_t Codec::takeContent(const char* data, std::size_t size) {
  const std::size_t used = std::min(size, content_left_);
  content_left_ -= used;
  if (header_.request_id == 0 || header_.type == kBeginRequest) {
    body_.append(data, used);  // at most one record's content: 65,535 bytes
  } else if (header_.type == kParams && forCurrent() && phase_ == kInParams) {
    if (!params_.feed(data, used)) fail(params_.error());
  } else if (header_.type == kStdin && forCurrent() && phase_ == kInStdin) {
    stdin_.append(data, used);
  }
  return used;
}

bool Codec::recordDone() {
  if (header_.request_id == 0) {
    if (header_.type == kGetValues) {
      getValues();
    } else {
      const char body[8] = {static_cast<char>(header_.type), 0, 0, 0, 0, 0, 0, 0};
      appendRecord(replies_, kUnknownType, 0, body, sizeof body);
    }
    return true;
  }
  const bool empty = header_.content_length == 0;
  switch (header_.type) {
    case kBeginRequest:
      return beginRequest();
    case kAbortRequest:
      if (forCurrent()) aborted_ = true;
      return true;
    case kParams:
      if (!forCurrent()) return true;
      if (phase_ != kInParams) return fail("parameters after their end");
      if (!empty) return true;
      if (!params_.atPairBoundary()) return fail("the parameters end inside a name-value pair");
      phase_ = kInStdin;
      return true;
    case kStdin:
      if (!forCurrent()) return true;
      if (phase_ == kInParams) return fail("posted data before the end of the parameters");
      if (phase_ == kStdinDone) return fail("posted data after its end");
      if (empty) phase_ = kStdinDone;
      return true;
    default:
      // Records for requests that are not under way, and types that a responder does not take
      // (filter data, records that only a responder sends), are ignored.
      return true;
  }
}

bool Codec::beginRequest() {
  if (body_.size() != 8)
    return fail("a begin-request record of " + std::to_string(body_.size()) + " bytes");
  const unsigned char* body = reinterpret_cast<const unsigned char*>(body_.data());
  const unsigned role = (static_cast<unsigned>(body[0]) << 8) | body[1];
  if (phase_ != kNoRequest) {
    appendEndRequest(replies_, header_.request_id, 0, kCantMpxConn);
    return true;
  }
  if (role != kRoleResponder) {
    appendEndRequest(replies_, header_.request_id, 0, kUnknownRole);
    return true;
  }
  phase_ = kInParams;
  request_id_ = header_.request_id;
  keep_connection_ = (body[2] & kFlagKeepConn) != 0;
  aborted_ = false;
  params_.reset();
  stdin_.clear();
  return true;
}

void Codec::getValues() {
  PairDecoder asked(limits_);
  asked.feed(body_.data(), body_.size());
  const std::string count = std::to_string(max_conns_);
  bool answered[3] = {false, false, false};
  std::string result;
  for (Pairs::const_iterator it = asked.pairs().begin(); it != asked.pairs().end(); ++it) {
    const char* names[3] = {kMaxConns, kMaxReqs, kMpxsConns};
    for (int i = 0; i < 3; ++i) {
      if (it->first != names[i] || answered[i]) continue;
      answered[i] = true;
      appendPair(result, it->first, i == 2 ? "0" : count);
    }
  }
  appendRecord(replies_, kGetValuesResult, 0, result.data(), result.size());
}

void Codec::endRequest() {
  phase_ = kNoRequest;
  keep_connection_ = false;
  aborted_ = false;
  params_.reset();
  stdin_.clear();
}

}  // namespace fcgi
}  // namespace wsi
