// The example host's form page at /form: a form with a text field and a file upload, the answer
// to what it posts, and a visit count kept in a cookie; the same over every back end.
#ifndef WSI_EXAMPLES_FORM_PAGE_HPP
#define WSI_EXAMPLES_FORM_PAGE_HPP

#include <wsi/interface.hpp>

namespace demo {

// Answers a request for /form with an HTML page (text/html; charset=utf-8):
// - GET (and HEAD, without the body): a multipart/form-data form with the text field "comment"
//   and the file field "upload";
// - POST with multipart/form-data or application/x-www-form-urlencoded: a line
//   "field NAME = VALUE" for each field and "file FIELD: FILENAME, N bytes" for each file;
//   a form that cannot be read gets 400, 413, 415 or 500 with the reason.
// Every answer counts the visit in the cookie "wsi_visits" and shows the count ("Visits: N"),
// and sets the cookie "wsi_last" to the method of the visit (POST, or GET for GET and HEAD).
// Returns what the response's endWrite() returns.
bool answerForm(wsi::Request& request, wsi::Response& response);

}  // namespace demo

#endif  // WSI_EXAMPLES_FORM_PAGE_HPP
