// A host program as a user writes it against the installed package: one exchange over streams
// through the C entry points, then a check of the HTTP text it produced. Prints the response and
// exits with 0 when it is right.
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

#include <wsi/wsi.hpp>

namespace {

const char kSpec[] = "streams(0,1,2)";
const char kConfig[] =
    "REQUEST_METHOD=post\n"
    "HTTP_URL=/greet?name=consumer\n"
    "header.Content-Type=text/plain\n";
const char kPosted[] = "hello";
const char kBody[] = "consumer says hello";

int fail(const char* what) {
  std::cerr << "consumer: " << what << '\n';
  return 1;
}

bool startsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

bool endsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Answers the request: reads the posted data and greets the "name" query argument with it.
bool serve(wsi::Handle& handle) {
  wsi::Request& request = handle.Request();
  const std::string* name = request.QueryArg("name");
  std::istream* posted = request.beginRead();
  if (request.Method() != wsi::Http::Post || name == 0 || posted == 0) return false;
  std::string data((std::istreambuf_iterator<char>(*posted)), std::istreambuf_iterator<char>());
  if (!request.endRead()) return false;

  wsi::Response& response = handle.Response();
  response.setHttpStatus(wsi::Http::Ok);
  response.setHttpHeader("Content-Type", "text/plain");
  std::ostream* body = response.beginWrite();
  if (body == 0) return false;
  *body << *name << " says " << data;
  return response.endWrite();
}

}  // namespace

int main() {
  std::istringstream config(kConfig);
  std::istringstream posted(kPosted);
  std::ostringstream output;
  void* args[3] = {&config, &posted, &output};

  void* context = WSI_CreateContext(kSpec, sizeof kSpec - 1, args);
  if (context == 0) return fail("WSI_CreateContext refused \"streams(0,1,2)\"");
  wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
  const bool served = handle != 0 && serve(*handle);
  WSI_DestroyContext(&context);
  if (context != 0) return fail("WSI_DestroyContext left the context variable set");

  const std::string text = output.str();
  std::cout << text << '\n';
  if (!served) return fail("the exchange over streams failed");
  if (!startsWith(text, "HTTP/1.1 200 "))
    return fail("the response does not start with the status line");
  if (!endsWith(text, std::string("\n\n") + kBody)) return fail("the body is not the expected one");
  return 0;
}
