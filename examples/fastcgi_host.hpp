// The example host as a FastCGI responder behind nginx, lighttpd or Apache.
#ifndef WSI_EXAMPLES_FASTCGI_HOST_HPP
#define WSI_EXAMPLES_FASTCGI_HOST_HPP

#include <string>

namespace demo {

// Listens on `address` (unix:PATH, tcp:HOST:PORT, fd:N or systemd) and serves requests from
// `threads` threads, each lending every handle it accepts with "handle(0)" and answering it as
// every mode of the demo does, until SIGTERM or SIGINT stops the server gracefully. Returns the
// process's exit status: 0 after a stop, 2 when the address cannot be served.
int serveFastCgi(const std::string& address, unsigned threads);

}  // namespace demo

#endif  // WSI_EXAMPLES_FASTCGI_HOST_HPP
