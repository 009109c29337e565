// A host built against the installed package: one exchange over streams through the C entry
// points. Prints the response and exits with 0 when it is the expected one.
#include <iostream>
#include <sstream>
#include <string>

#include <wsi/wsi.hpp>

int main() {
  std::istringstream config("REQUEST_METHOD=POST\nHTTP_URL=/greet?name=consumer\n"),
      posted("hello");
  std::ostringstream output;
  void* args[3] = {&config, &posted, &output};
  void* context = WSI_CreateContext("streams(0,1,2)", 14, args);
  wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
  if (handle == nullptr) return 1;
  const std::string* name = handle->Request().QueryArg("name");
  std::istream* in = handle->Request().beginRead();
  wsi::Response& response = handle->Response();
  response.setHttpStatus(wsi::Http::Ok);
  response.setHttpHeader("Content-Type", "text/plain");
  std::ostream* body = response.beginWrite();
  if (name != nullptr && in != nullptr && body != nullptr)
    *body << *name << " says " << in->rdbuf();
  const bool ended = handle->Request().endRead() && response.endWrite();
  WSI_DestroyContext(&context);
  std::cout << output.str() << '\n';
  if (ended && context == nullptr &&
      output.str() == "HTTP/1.1 200 OK\nContent-Type: text/plain\n\nconsumer says hello")
    return 0;
  std::cerr << "consumer: not the expected exchange (or the context variable still set)\n";
  return 1;
}
