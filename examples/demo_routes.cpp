// The example host's dispatch and its small answers.
#include "demo_routes.hpp"

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <string>

#include "demo_page.hpp"
#include "form_page.hpp"

namespace demo {
namespace {

// The most that /bytes answers: 16 MiB.
const std::uint64_t kMaxBytes = 16u << 20;

bool endsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// A short plain-text answer: `status`, the text as the body (none for HEAD).
bool answerText(wsi::Request& request, wsi::Response& response, wsi::Http::Status status,
                const std::string& text) {
  response.setHttpStatus(status);
  response.setHttpHeader("Content-Type", "text/plain; charset=utf-8");
  response.setContentLength(text.size());
  std::ostream* body = response.beginWrite();
  if (body != nullptr && request.Method() != wsi::Http::Head) *body << text;
  return response.endWrite();
}

bool methodNotAllowed(wsi::Request& request, wsi::Response& response) {
  response.setHttpHeader("Allow", "GET, HEAD, POST");
  return answerText(request, response, wsi::Http::MethodNotAllowed, "Method Not Allowed\n");
}

// The count that the query argument "n" holds: decimal digits, at most kMaxBytes. False for
// anything else.
bool byteCount(const wsi::Request& request, std::uint64_t& n) {
  const std::string* text = request.QueryArg("n");
  if (text == nullptr || text->empty() || text->size() > 8) return false;
  n = 0;
  for (char c : *text) {
    if (c < '0' || c > '9') return false;
    n = n * 10 + static_cast<std::uint64_t>(c - '0');
  }
  return n <= kMaxBytes;
}

// N bytes of 'x', written in pieces.
bool answerBytes(wsi::Request& request, wsi::Response& response) {
  std::uint64_t n = 0;
  if (!byteCount(request, n))
    return answerText(request, response, wsi::Http::BadRequest,
                      "n must be a number of bytes from 0 to 16777216\n");
  response.setHttpStatus(wsi::Http::Ok);
  response.setHttpHeader("Content-Type", "text/plain");
  response.setContentLength(static_cast<unsigned long>(n));
  std::ostream* body = response.beginWrite();
  if (body != nullptr && request.Method() != wsi::Http::Head) {
    const std::string piece(64 * 1024, 'x');
    for (std::uint64_t left = n; left > 0 && *body;) {
      const std::uint64_t size = std::min<std::uint64_t>(left, piece.size());
      body->write(piece.data(), static_cast<std::streamsize>(size));
      left -= size;
    }
  }
  return response.endWrite();
}

bool route(wsi::Request& request, wsi::Response& response) {
  const wsi::Http::MethodId method = request.Method();
  if (method != wsi::Http::Get && method != wsi::Http::Head && method != wsi::Http::Post)
    return methodNotAllowed(request, response);
  if (endsWith(request.URL(), "/bytes")) return answerBytes(request, response);
  // Exactly /form: the shipped sample posts to /demo/form and keeps getting the demo page.
  if (request.URL() == "/form") return answerForm(request, response);
  return answer(request, response);
}

}  // namespace

bool respond(wsi::Request& request, wsi::Response& response) {
  const bool complete = route(request, response);
  if (!complete) std::cerr << "wsi_demo: response not completed\n";
  return complete;
}

}  // namespace demo
