// The responder's side of one FastCGI connection, as pure byte work: it takes what the web server
// sends in any pieces, keeps the one request the connection carries at a time (its parameters and
// posted data), and prepares the records that answer management records and refused requests.
// Sending and receiving belong to the caller.
#ifndef WSI_COMMON_WSIFCGI_FCGI_CODEC_HPP
#define WSI_COMMON_WSIFCGI_FCGI_CODEC_HPP

#include <cstddef>
#include <cstdint>
#include <string>

#include "wsi/common/wsifcgi/fcgi_pairs.hpp"
#include "wsi/common/wsifcgi/fcgi_record.hpp"

namespace wsi {
namespace fcgi {

class Codec {
 public:
  // `limits` bound the parameters of each request; `max_conns` is the value announced for
  // FCGI_MAX_CONNS and FCGI_MAX_REQS (one request per connection).
  Codec(const PairLimits& limits, std::uint32_t max_conns);

  // Takes the `size` bytes at `data`. Returns false once the stream broke the protocol (error()
  // says how); nothing after that point is looked at, and the connection cannot go on.
  bool feed(const char* data, std::size_t size);

  bool failed() const { return !error_.empty(); }
  const std::string& error() const { return error_; }
  // No request is under way and no record is partly received: the connection is idle.
  bool idle() const { return phase_ == kNoRequest && !inRecord(); }
  // The current request's parameters are complete: it can be served.
  bool requestReady() const { return phase_ == kInStdin || phase_ == kStdinDone; }
  std::uint16_t requestId() const { return request_id_; }
  // The web server asked to keep the connection open after this request.
  bool keepConnection() const { return keep_connection_; }
  // The web server aborted the current request.
  bool aborted() const { return aborted_; }
  // The empty stdin record arrived: all posted data of the request is in.
  bool stdinEnded() const { return phase_ == kStdinDone; }
  // The current request's parameters, in the order they came.
  const Pairs& params() const { return params_.pairs(); }
  // Posted data received and not yet taken; the caller takes it by swapping or clearing.
  std::string& stdinData() { return stdin_; }
  // Records to send to the web server (answers to management records, refused requests); the
  // caller sends and clears them.
  std::string& replies() { return replies_; }
  // Ends the current request, so that the connection takes the next one.
  void endRequest();

 private:
  enum Phase { kNoRequest, kInParams, kInStdin, kStdinDone };

  bool inRecord() const { return header_bytes_ > 0 || content_left_ > 0 || padding_left_ > 0; }
  bool fail(const std::string& why);
  // Checks a complete header and prepares to take its content.
  bool headerDone();
  // Takes content bytes of the current record; returns how many it used.
  std::size_t takeContent(const char* data, std::size_t size);
  // Acts on a record whose content is complete.
  bool recordDone();
  bool beginRequest();
  void getValues();
  bool forCurrent() const { return phase_ != kNoRequest && header_.request_id == request_id_; }

  PairLimits limits_;
  std::uint32_t max_conns_;
  unsigned char header_bytes_buffer_[kHeaderSize];
  std::size_t header_bytes_;  // of the current record's header received
  RecordHeader header_;
  std::size_t content_left_;  // content bytes of the current record still to come
  std::size_t padding_left_;
  std::string body_;  // content of a record that is acted on as a whole
  Phase phase_;
  std::uint16_t request_id_;
  bool keep_connection_;
  bool aborted_;
  PairDecoder params_;
  std::string stdin_;
  std::string replies_;
  std::string error_;
};

}  // namespace fcgi
}  // namespace wsi

#endif  // WSI_COMMON_WSIFCGI_FCGI_CODEC_HPP
