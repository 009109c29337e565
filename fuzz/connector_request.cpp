// Fuzz target: request messages read by the connector, frames and record block, through a real
// connector over a socket pair.
//
// The first input byte says how the rest (the payload: record block and posted data) goes on the
// wire: bits 0-1 the shape of the message (0: framed, with the end frame; 1: framed, and the
// connection ends inside the message; 2: the bytes as they are, frame headers included; 3: two
// framed messages with the same payload, the second in frames of 4096 bytes), bits 2-4 the
// frame size (1 << n bytes), bit 5 whether the host reads only half of the posted data. The web
// server's side then closes its sending side, so the host reads the end of the connection after
// the input. The host's connector waits 50 ms at most.
//
// The host reads the request, checks it as every request (fuzz_check.hpp), its method against
// REQUEST_METHOD and its posted data against the payload, and answers with a status, two headers
// and the posted data as the body. Checked: a request that was read answers with exactly one
// complete response message whose head and body the web server reads back, and a request that was
// not read sends no byte; a whole message is read and turned round without an error, a message
// cut short ends in one; the same payload read a second time gives the same request.
#include <pthread.h>
#include <cstdint>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <wsi/qco_handle.hpp>
#include <wx/log.hpp>
#include "connector_pair.hpp"
#include "fuzz_check.hpp"
#include "peer_records.hpp"

namespace {

enum Shape { kWhole = 0, kCut = 1, kRaw = 2, kTwice = 3 };

const int kTimeoutMs = 50;
const std::size_t kSecondChunk = 4096;

// What the host did with one request that it read.
struct Served {
  std::string request_dump;
  std::string query;
  std::string body;
};

// Logs everything, into /dev/null, so that every message and dump is built from the input.
void logEverything() {
  pthread_once(&wsi::Handle::init_log_once_, wsi::Handle::_initLogOnce);
  wx::log::log* log = wsi::Handle::plog_;
  pthread_mutex_lock(&log->mutex);
  log->file_name = "/dev/null";
  pthread_mutex_unlock(&log->mutex);
  log->level = 7;
}

// The posted data that the host reads through the stream, so that reaching its end shows on the
// stream: all of it (it is shorter than the payload), or at most half of `payload_size` bytes.
std::string readPosted(std::istream& in, bool half, std::size_t payload_size) {
  std::string posted(half ? payload_size / 2 : payload_size, '\0');
  in.read(&posted[0], static_cast<std::streamsize>(posted.size()));
  posted.resize(static_cast<std::size_t>(in.gcount()));
  return posted;
}

// Serves one request over `connector` as a host that echoes it; false when the request was not
// read.
bool serveOne(qco::QorvaConnector& connector, const std::string& payload, Shape shape, bool half,
              Served& served) {
  wsi::QcoHandle handle(connector);
  wsi::Request& request = handle.Request();
  wsi::Response& response = handle.Response();
  std::istream* in = request.beginRead();
  if (in == nullptr) {
    FUZZ_CHECK(!request.endRead());
    FUZZ_CHECK(response.beginWrite() == nullptr);
    FUZZ_CHECK(!response.endWrite());
    return false;
  }
  fuzz::checkRequest(request);
  const std::string* method = request.ServerVariables("REQUEST_METHOD");
  FUZZ_CHECK(method != nullptr);
  FUZZ_CHECK(request.Method() == wsi::Http::MethodIdOf<wx::encoding::connector>(method->c_str()));

  served.body = readPosted(*in, half, payload.size());
  const bool read_ended = request.endRead();
  if (shape != kRaw) {
    // The posted data is what follows the record block in the payload.
    FUZZ_CHECK(payload.size() >= served.body.size());
    if (!half)
      FUZZ_CHECK(payload.compare(payload.size() - served.body.size(), std::string::npos,
                                 served.body) == 0);
    if (!half) FUZZ_CHECK(read_ended == (shape != kCut));
  }

  served.query = request.QueryString();
  response.setHttpStatus(wsi::Http::Ok);
  response.setHttpHeader("X-Query", served.query);
  response.setHttpHeader("Content-Type", "application/octet-stream");
  std::ostream* out = response.beginWrite();
  FUZZ_CHECK(out != nullptr);
  out->write(served.body.data(), static_cast<std::streamsize>(served.body.size()));
  const bool ended = response.endWrite();
  if (shape != kRaw) FUZZ_CHECK(ended == (shape != kCut));

  std::ostringstream dump;
  request._dump(dump);
  served.request_dump = dump.str();
  return true;
}

// The response message that answers `served`, as the web server reads it.
void checkResponse(const fuzz::ResponseMessage& message, const Served& served) {
  FUZZ_CHECK(message.complete);
  std::istringstream in(message.payload);
  peer::ResponseHead head;
  std::string error;
  FUZZ_CHECK(peer::readResponseHead(in, head, error));
  FUZZ_CHECK(head.status == wsi::Http::Ok);
  FUZZ_CHECK(head.content_type == "application/octet-stream");
  FUZZ_CHECK(head.headers.size() == 1);
  FUZZ_CHECK(head.headers[0].first == "X-Query" && head.headers[0].second == served.query);
  const std::string body(std::istreambuf_iterator<char>(in), {});
  FUZZ_CHECK(body == served.body);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool logging = (logEverything(), true);
  (void)logging;
  if (size == 0) return 0;
  const Shape shape = static_cast<Shape>(data[0] & 3);
  const std::size_t chunk = std::size_t(1) << ((data[0] >> 2) & 7);
  const bool half = (data[0] & 0x20) != 0;
  const std::string payload(reinterpret_cast<const char*>(data) + 1, size - 1);

  std::string wire;
  if (shape == kRaw)
    wire = payload;
  else
    wire = fuzz::frames(payload, chunk, shape != kCut);
  if (shape == kTwice) wire += fuzz::frames(payload, kSecondChunk, true);

  fuzz::ConnectorPair pair(wire, kTimeoutMs);
  std::vector<Served> served(1);
  if (!serveOne(pair.host(), payload, shape, half, served.back())) served.pop_back();
  if (shape == kTwice && served.size() == 1) {
    served.emplace_back();
    FUZZ_CHECK(serveOne(pair.host(), payload, shape, half, served.back()));
    FUZZ_CHECK(served[1].request_dump == served[0].request_dump);
  }

  const std::vector<fuzz::ResponseMessage> responses = pair.finish();
  FUZZ_CHECK(responses.size() == served.size());
  for (std::size_t i = 0; i < served.size(); ++i)
    checkResponse(responses[i], served[i]);
  return 0;
}
