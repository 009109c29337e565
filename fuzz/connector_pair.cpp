// Both ends of a connector connection inside one process.
#include "connector_pair.hpp"

#include <sys/socket.h>
#include <iterator>

#include "fuzz_check.hpp"

namespace fuzz {

namespace {

// The sending buffer asked for the host's end.
const int kHostBufferBytes = 1 << 20;

// Writes as much of `bytes` as the socket takes at once.
void sendWithoutWaiting(int fd, const std::string& bytes) {
  std::size_t at = 0;
  while (at < bytes.size()) {
    const ssize_t n = send(fd, bytes.data() + at, bytes.size() - at, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (n <= 0) return;
    at += static_cast<std::size_t>(n);
  }
}

// Reads response messages from `fd` until the host's side ends the connection; everything has
// arrived already, so no read waits.
std::vector<ResponseMessage> collect(int fd) {
  std::vector<ResponseMessage> responses;
  qco::QorvaConnector server(fd);
  std::istream& in = server.stream();
  for (;;) {
    ResponseMessage message;
    message.payload.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    message.complete = server.lastError() == 0;
    if (server.lastError() == qco::QorvaConnector::connection_ended) return responses;
    responses.push_back(message);
    if (!message.complete || server.SkipRestOfMessage() != 0) return responses;
  }
}

}  // namespace

ConnectorPair::ConnectorPair(const std::string& request, int timeout_ms) : host_(sockets_.host) {
  FUZZ_CHECK(sockets_.host >= 0 && sockets_.peer >= 0);
  FUZZ_CHECK(setsockopt(sockets_.host, SOL_SOCKET, SO_SNDBUF, &kHostBufferBytes,
                        sizeof kHostBufferBytes) == 0);
  host_.setTimeout(timeout_ms);
  sendWithoutWaiting(sockets_.peer, request);
  shutdown(sockets_.peer, SHUT_WR);
}

std::vector<ResponseMessage> ConnectorPair::finish() {
  shutdown(sockets_.host, SHUT_WR);
  return collect(sockets_.peer);
}

std::string frames(const std::string& payload, std::size_t chunk, bool end) {
  const std::string message = qcotest::message(payload, chunk);
  return end ? message : message.substr(0, message.size() - 4);
}

}  // namespace fuzz
