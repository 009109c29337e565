// A host program as a user writes it against the installed package: one exchange over streams
// through the C entry points. Prints the response and exits with 0 when it is the expected one.
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

#include <wsi/wsi.hpp>

// Answers the request: greets the "name" query argument with the posted data.
static bool serve(wsi::Handle& handle) {
  wsi::Request& request = handle.Request();
  const std::string* name = request.QueryArg("name");
  std::istream* posted = request.beginRead();
  if (request.Method() != wsi::Http::Post || name == 0 || posted == 0) return false;
  const std::string data((std::istreambuf_iterator<char>(*posted)),
                         std::istreambuf_iterator<char>());
  if (!request.endRead()) return false;
  wsi::Response& response = handle.Response();
  response.setHttpStatus(wsi::Http::Ok);
  response.setHttpHeader("Content-Type", "text/plain");
  std::ostream* body = response.beginWrite();
  if (body == 0) return false;
  *body << *name << " says " << data;
  return response.endWrite();
}

int main() {
  std::istringstream config("REQUEST_METHOD=post\nHTTP_URL=/greet?name=consumer\n");
  std::istringstream posted("hello");
  std::ostringstream output;
  void* args[3] = {&config, &posted, &output};
  void* context = WSI_CreateContext("streams(0,1,2)", 14, args);
  wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
  const bool served = handle != 0 && serve(*handle);
  WSI_DestroyContext(&context);
  std::cout << output.str() << '\n';
  const char* const failure = !served        ? "the exchange over streams failed"
                              : context != 0 ? "WSI_DestroyContext left the context variable set"
                              : output.str() !=
                                      "HTTP/1.1 200 OK\nContent-Type: text/plain\n\n"
                                      "consumer says hello"
                                  ? "not the expected response"
                                  : 0;
  if (failure != 0) std::cerr << "consumer: " << failure << '\n';
  return failure != 0;
}
