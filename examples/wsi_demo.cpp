// The example host: answers one request with a page that describes it, over the back end that
// its specification string names.
//
//   wsi_demo 'files(request.cfg*posted.dat*response.txt)'
//   wsi_demo --config request.cfg 'streams(0,1,2)' < posted.dat > response.txt
//   wsi_demo --connector          (the web server's connection on descriptor $WSI_CONNECTOR_FD)
//   wsi_demo --connector-fd N     (... on descriptor N)
//   wsi_demo --cgi                (one CGI request: the environment, standard input and output)
//   wsi_demo --fastcgi ADDRESS [--threads N]   (a FastCGI responder, until SIGTERM or SIGINT)
//
// The pointer array handed to the library holds, at index 0, the configuration file named by
// --config; at 1, standard input (the posted data); at 2, standard output (the response).
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include <wsi/wsi.hpp>
#include "demo_routes.hpp"
#include "fastcgi_host.hpp"

extern char** environ;

namespace {

const char kUsage[] =
    "usage: wsi_demo [--config FILE] SPEC\n"
    "  SPEC 'files(CONFIG*POSTED*OUTPUT)': the library opens the three files itself.\n"
    "  SPEC 'streams(0,1,2)': the request configuration is read from the --config FILE\n"
    "       (index 0), the posted data from standard input (index 1) and the response is\n"
    "       written to standard output (index 2).\n"
    "usage: wsi_demo --connector | --connector-fd N\n"
    "  Serves requests over the connector on descriptor $WSI_CONNECTOR_FD (or N), one handle\n"
    "  each, lent with 'handle(0)', until the web server ends the connection.\n"
    "usage: wsi_demo --cgi\n"
    "  Serves one CGI request: the variables from the environment, the posted data from\n"
    "  standard input, the response to standard output.\n"
    "usage: wsi_demo --fastcgi ADDRESS [--threads N]\n"
    "  Serves FastCGI requests on ADDRESS (unix:PATH, tcp:HOST:PORT, fd:N or systemd) from N\n"
    "  threads (1 to 256, default 1) until SIGTERM or SIGINT.\n";

// Why the library refused the arguments of `spec`: the C entry points only say that they did,
// the context itself says why.
std::string refusal(const std::string& spec, void** args) {
  try {
    wsi::Context context(spec.data(), spec.size(), args);
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "out of memory";
}

// Runs one exchange over the context that `spec` describes. Returns the process's exit status.
int serve(const std::string& spec, void** args) {
  void* context = WSI_CreateContext(spec.data(), spec.size(), args);
  if (context == nullptr) {
    std::cerr << "wsi_demo: the arguments of '" << spec << "' were refused: " << refusal(spec, args)
              << '\n';
    return 2;
  }
  wsi::Handle* handle = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
  // "handle(i)" would lend one of this program's streams as a handle: it has no connector.
  const bool lent_stream = handle == args[0] || handle == args[1] || handle == args[2];
  if (handle == nullptr || lent_stream) {
    WSI_DestroyContext(&context);
    std::cerr << "wsi_demo: '" << spec << "' does not name a files(...) or streams(...) exchange\n"
              << kUsage;
    return 2;
  }
  const bool complete = demo::respond(handle->Request(), handle->Response());
  WSI_DestroyContext(&context);
  return complete ? 0 : 1;
}

// Serves requests over the connector on `fd`, one handle each, until the web server ends the
// connection (exit status 0) or it fails (1).
int serveConnection(int fd) {
  qco::QorvaConnector connector(fd);
  for (;;) {
    wsi::QcoHandle handle(connector);
    // A request that could not be read refuses its posted data: the connection is over.
    if (handle.Request().beginRead() == nullptr) break;
    void* args[1] = {&handle};
    void* context = WSI_CreateContext("handle(0)", 9, args);
    if (context == nullptr) return 1;
    wsi::Handle* lent = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
    demo::respond(lent->Request(), lent->Response());
    WSI_DestroyContext(&context);
  }
  const int code = connector.lastError();
  if (code == qco::QorvaConnector::connection_ended) return 0;
  std::cerr << "wsi_demo: the connection failed with error " << code << " ("
            << qco::QorvaConnector::ErrorNameOf(code) << ")\n";
  return 1;
}

// Serves one CGI request over a handle lent with "handle(0)". Exit status 0 when the response
// was completed, 1 otherwise.
int serveCgi() {
  wsi::CgiHandle handle(environ, std::cin, std::cout);
  void* args[1] = {&handle};
  void* context = WSI_CreateContext("handle(0)", 9, args);
  if (context == nullptr) return 1;
  wsi::Handle* lent = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
  const bool complete = demo::respond(lent->Request(), lent->Response());
  WSI_DestroyContext(&context);
  return complete ? 0 : 1;
}

// The thread count of "--threads N" at argv[i], or 0 when it is not one.
unsigned threadCount(int argc, char** argv, int i) {
  if (argc != i + 2 || std::strcmp(argv[i], "--threads") != 0) return 0;
  char* end = nullptr;
  const long n = std::strtol(argv[i + 1], &end, 10);
  return *end == '\0' && n >= 1 && n <= 256 ? static_cast<unsigned>(n) : 0;
}

// The descriptor that the connector options name, or -1.
int connectorDescriptor(int argc, char** argv) {
  const char* text = nullptr;
  if (argc == 2 && std::strcmp(argv[1], "--connector") == 0) text = std::getenv("WSI_CONNECTOR_FD");
  if (argc == 3 && std::strcmp(argv[1], "--connector-fd") == 0) text = argv[2];
  if (text == nullptr || *text == '\0') return -1;
  char* end = nullptr;
  const long fd = std::strtol(text, &end, 10);
  return *end == '\0' && fd >= 0 && fd <= 1 << 20 ? static_cast<int>(fd) : -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--cgi") == 0) return serveCgi();
  if (argc > 2 && std::strcmp(argv[1], "--fastcgi") == 0) {
    const unsigned threads = argc == 3 ? 1 : threadCount(argc, argv, 3);
    if (threads > 0) return demo::serveFastCgi(argv[2], threads);
    std::cerr << kUsage;
    return 2;
  }
  if (argc > 1 && std::strncmp(argv[1], "--connector", 11) == 0) {
    const int fd = connectorDescriptor(argc, argv);
    if (fd >= 0) return serveConnection(fd);
    std::cerr << kUsage;
    return 2;
  }
  const char* config_name = nullptr;
  int next = 1;
  if (argc > 2 && std::strcmp(argv[1], "--config") == 0) {
    config_name = argv[2];
    next = 3;
  }
  if (argc != next + 1) {
    std::cerr << kUsage;
    return 2;
  }
  std::ifstream config;
  if (config_name != nullptr) {
    config.open(config_name);
    if (!config) {
      std::cerr << "wsi_demo: cannot read the configuration file '" << config_name << "'\n";
      return 2;
    }
  }
  void* args[3] = {config_name != nullptr ? &config : nullptr, &std::cin, &std::cout};
  return serve(argv[next], args);
}
