/* The C entry points of the web server interface. Valid C99 and C++11.
 *
 * A host creates a context from a specification string, takes its handle (a wsi::Handle* in
 * C++), works through the handle's request and response, and destroys the context:
 *
 *   void* args[3] = { &config, &posted, &output };
 *   void* ctx = WSI_CreateContext("streams(0,1,2)", 14, args);
 *   wsi::Handle* h = static_cast<wsi::Handle*>(WSI_ContextGetHandle(ctx));
 *   ...
 *   WSI_DestroyContext(&ctx);
 *
 * Specification strings: "type(arguments)", with the type word "handle", "streams" or "files"
 * (any case, surrounding white space allowed, or its first letter alone):
 *   handle(i)            the caller's own wsi::Handle at args[i], lent to the context;
 *   streams(i,j,k)       request-configuration istream, posted-data istream and response ostream
 *                        at args[i], args[j], args[k];
 *   files(cfg*data*out)  three file names; the output file is created or emptied.
 *
 * Two kinds of failure are kept apart: a string of the wrong shape or with an unknown type word
 * gives a context whose handle is null; a well-formed string whose arguments are rejected gives
 * no context at all (null). No exception ever leaves these functions. */
#ifndef WSI_WSI_H
#define WSI_WSI_H

#include <wsi/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A new context for the first `specLen` bytes of `spec` (no terminating zero needed), or null
 * when the arguments were rejected or memory ran out. */
WSI_API void* WSI_CreateContext(const char* spec, unsigned long specLen, void** args);

/* The context's handle, or null when `context` is null or the specification was not accepted. */
WSI_API void* WSI_ContextGetHandle(void* context);

/* Sets the caller's variable to null, then destroys the context it held (if any) together with
 * a handle the context created. A lent handle stays the caller's. */
WSI_API void WSI_DestroyContext(void** context);

#ifdef __cplusplus
}
#endif

#endif /* WSI_WSI_H */
