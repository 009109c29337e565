// The example host's answer to any request, written once against the request and response
// interfaces, whatever back end carries the exchange.
#ifndef WSI_EXAMPLES_DEMO_PAGE_HPP
#define WSI_EXAMPLES_DEMO_PAGE_HPP

#include <wsi/interface.hpp>

namespace demo {

// Reads the whole request (with its posted data) and answers with status 200, a plain-text page
// that describes what the request carried, its length and the header "X-Wsi-Demo" (for HEAD, no
// page). Returns what the response's endWrite() returns: whether the whole response reached its
// stream.
bool answer(wsi::Request& request, wsi::Response& response);

}  // namespace demo

#endif  // WSI_EXAMPLES_DEMO_PAGE_HPP
