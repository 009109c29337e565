// The example host as a FastCGI responder.
#include "fastcgi_host.hpp"

#include <signal.h>
#include <exception>
#include <functional>
#include <iostream>
#include <thread>
#include <vector>

#include <wsi/wsi.hpp>
#include "demo_routes.hpp"

namespace demo {

namespace {

// The server that SIGTERM and SIGINT stop; stop() is safe in a signal handler.
wsi::FcgiServer* g_server = nullptr;

extern "C" void stopServer(int) {
  if (g_server != nullptr) g_server->stop();
}

void installStopHandler() {
  struct sigaction action;
  action.sa_handler = stopServer;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
}

// One thread's work: accept, lend, answer, release, until the server stops.
void serveRequests(wsi::FcgiServer& server) {
  while (wsi::Handle* handle = server.accept()) {
    void* args[1] = {handle};
    void* context = WSI_CreateContext("handle(0)", 9, args);
    if (context != nullptr) {
      wsi::Handle* lent = static_cast<wsi::Handle*>(WSI_ContextGetHandle(context));
      respond(lent->Request(), lent->Response());
      WSI_DestroyContext(&context);
    }
    server.release(handle);
  }
}

}  // namespace

int serveFastCgi(const std::string& address, unsigned threads) {
  try {
    wsi::FcgiServer server(address);
    g_server = &server;
    installStopHandler();
    std::vector<std::thread> workers;
    for (unsigned i = 1; i < threads; ++i)
      workers.emplace_back(serveRequests, std::ref(server));
    serveRequests(server);
    for (std::thread& worker : workers)
      worker.join();
    g_server = nullptr;
    return 0;
  } catch (const std::exception& e) {
    std::cerr << "wsi_demo: cannot serve FastCGI on '" << address << "': " << e.what() << '\n';
    return 2;
  }
}

}  // namespace demo
