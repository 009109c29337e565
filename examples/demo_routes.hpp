// The example host's dispatch: which answer a request gets, whatever back end carries it.
#ifndef WSI_EXAMPLES_DEMO_ROUTES_HPP
#define WSI_EXAMPLES_DEMO_ROUTES_HPP

#include <wsi/interface.hpp>

namespace demo {

// Answers one request:
// - a method other than GET, HEAD and POST: "405 Method Not Allowed" with "Allow: GET, HEAD, POST";
// - a URL ending in "/bytes": N bytes of 'x' as text/plain, N from the query argument "n"
//   (0 to 16 MiB; anything else is "400 Bad Request");
// - a URL ending in "/form": the form page (form_page.hpp);
// - any other URL: the demo page.
// A HEAD request gets the headers that GET would get, without the body. Returns what the
// response's endWrite() returns; when that is false, prints "wsi_demo: response not completed"
// to standard error.
bool respond(wsi::Request& request, wsi::Response& response);

}  // namespace demo

#endif  // WSI_EXAMPLES_DEMO_ROUTES_HPP
