#include "form_page.hpp"

#include <ostream>
#include <string>

#include <wsi/cookies.hpp>
#include <wsi/form_urlencoded.hpp>
#include <wsi/multipart_form.hpp>

namespace demo {
namespace {

const char kCookie[] = "wsi_visits";

// `text` with the bytes that HTML gives a meaning escaped.
std::string html(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// The visits counted so far by the request's cookie: 0 when it is absent or not a number.
unsigned long visitsSoFar(const wsi::Request& request) {
  const wsi::NameValuePairs cookies = wsi::requestCookies(request);
  const std::string* text = wsi::findValue(cookies, kCookie);
  if (text == nullptr || text->empty() || text->size() > 9) return 0;
  unsigned long n = 0;
  for (char c : *text) {
    if (c < '0' || c > '9') return 0;
    n = n * 10 + static_cast<unsigned long>(c - '0');
  }
  return n;
}

const char kForm[] =
    "<form method=\"post\" action=\"/form\" enctype=\"multipart/form-data\">\n"
    "<p><label>Comment <input type=\"text\" name=\"comment\"></label></p>\n"
    "<p><label>File <input type=\"file\" name=\"upload\"></label></p>\n"
    "<p><button type=\"submit\">Send</button></p>\n"
    "</form>\n";

// The HTTP status for a form that could not be read.
wsi::Http::Status statusOf(wsi::FormStatus status) {
  switch (status) {
    case wsi::form_ok:
      return wsi::Http::Ok;
    case wsi::form_too_large:
      return wsi::Http::RequestEntityTooLarge;
    case wsi::form_unsupported:
      return wsi::Http::UnsupportedMediaType;
    case wsi::form_failed:
      return wsi::Http::InternalServerError;
    default:
      return wsi::Http::BadRequest;
  }
}

// Reads the posted form and lists what it held; returns the status of the answer.
wsi::FormStatus listPosted(wsi::Request& request, std::string& list) {
  const std::string* type = request.HttpHeaders("Content-Type");
  std::string error;
  wsi::FormStatus status;
  wsi::NameValuePairs fields;
  wsi::MultipartForm form;
  if (type != nullptr && type->find("multipart/form-data") != std::string::npos) {
    status = wsi::readMultipartForm(request, form, error);
    fields.swap(form.fields);
  } else {
    status = wsi::readUrlencodedForm(request, fields, error);
  }
  if (status != wsi::form_ok) {
    list = "<p>The form could not be read: " + html(error) + "</p>\n";
    return status;
  }
  list = "<ul>\n";
  for (const auto& field : fields)
    list += "<li>field " + html(field.first) + " = " + html(field.second) + "</li>\n";
  for (const wsi::FormFile& file : form.files)
    list += "<li>file " + html(file.field) + ": " + html(file.filename) + ", " +
            std::to_string(file.size) + " bytes</li>\n";
  list += "</ul>\n";
  return status;
}

}  // namespace

bool answerForm(wsi::Request& request, wsi::Response& response) {
  const unsigned long visits = visitsSoFar(request) + 1;
  std::string page = "<!DOCTYPE html>\n<html><head><title>wsi form</title></head><body>\n";
  wsi::FormStatus status = wsi::form_ok;
  if (request.Method() == wsi::Http::Post) {
    std::string list;
    status = listPosted(request, list);
    page += "<h1>Form received</h1>\n" + list;
  } else {
    page += "<h1>Send a form</h1>\n";
    page += kForm;
  }
  page += "<p>Visits: " + std::to_string(visits) + "</p>\n</body></html>\n";

  response.setHttpStatus(statusOf(status));
  response.setHttpHeader("Content-Type", "text/html; charset=utf-8");
  response.setHttpHeader("Cache-Control", "no-store");
  // Two cookies, so that every back end shows how several Set-Cookie headers reach the client.
  wsi::ResponseCookies cookies(response);
  std::string error;
  cookies.add(wsi::SetCookie(kCookie, std::to_string(visits))
                  .path("/")
                  .maxAge(365L * 24 * 3600)
                  .httpOnly()
                  .sameSite(wsi::same_site_lax),
              error);
  cookies.add(wsi::SetCookie("wsi_last", request.Method() == wsi::Http::Post ? "POST" : "GET")
                  .path("/form")
                  .sameSite(wsi::same_site_lax),
              error);
  response.setContentLength(page.size());
  std::ostream* body = response.beginWrite();
  if (body != nullptr && request.Method() != wsi::Http::Head) *body << page;
  return response.endWrite();
}

}  // namespace demo
