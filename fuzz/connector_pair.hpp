// Both ends of a connector connection inside one process, for the connector's fuzz targets: the
// host's connector at one end, the web server's side (request bytes in, response messages out) at
// the other.
#ifndef WSI_FUZZ_CONNECTOR_PAIR_HPP
#define WSI_FUZZ_CONNECTOR_PAIR_HPP

#include <string>
#include <vector>

#include <qco/qco.hpp>
#include "qco_test_util.hpp"

namespace fuzz {

// One response message as the web server received it.
struct ResponseMessage {
  std::string payload;  // the payload bytes of its frames
  bool complete;        // its end frame arrived
};

class ConnectorPair {
 public:
  // Connects the two ends and writes `request` (the wire bytes of the request messages) to the
  // host, then closes the web server's sending side: the host reads those bytes and then the end
  // of the connection. Neither side ever waits for the other: the request is written without
  // blocking (bytes that do not fit into the socket would be dropped), and the responses stay in
  // the socket until finish() reads them, the host's sending buffer being made large enough
  // (1 MiB asked) for every response the targets write, which keep far below it. Threads would
  // do the same at a tenth of the speed. The host's connector gets a timeout of `timeout_ms`.
  ConnectorPair(const std::string& request, int timeout_ms);
  ConnectorPair(const ConnectorPair&) = delete;
  ConnectorPair& operator=(const ConnectorPair&) = delete;

  // The host's end: build the handles over it.
  qco::QorvaConnector& host() { return host_; }

  // Closes the host's sending side (destroy the handles first) and reads what the host sent.
  // Returns the response messages in the order they came.
  std::vector<ResponseMessage> finish();

 private:
  qcotest::SocketPair sockets_;
  qco::QorvaConnector host_;
};

// The wire bytes of a message that carries `payload` in frames of at most `chunk` bytes, with the
// end frame when `end` is set.
std::string frames(const std::string& payload, std::size_t chunk, bool end);

}  // namespace fuzz

#endif  // WSI_FUZZ_CONNECTOR_PAIR_HPP
