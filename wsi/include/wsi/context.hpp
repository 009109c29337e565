// The object behind the C entry points.
#ifndef WSI_CONTEXT_HPP
#define WSI_CONTEXT_HPP

#include <wsi/export.h>
#include <wsi/interface.hpp>

namespace wsi {

// One context: the handle that a specification string names, and whether the context owns it.
class WSI_API Context {
 public:
  // Parses the first `specLen` bytes of `spec`. A string of the wrong shape or with an unknown
  // type word leaves the context without a handle; arguments that a getter rejects throw
  // std::invalid_argument with the getter's text.
  Context(const char* spec, unsigned long specLen, void** args);
  // Deletes the handle when the context created it.
  virtual ~Context();

  Handle* handle() const { return handle_; }

  // The caller's handle at the one index of the list `text` ("handle" type): lent, not owned.
  // Throws std::invalid_argument: "empty text", "invalid decimal character", "too many
  // parameters", "invalid web server interface handle".
  Handle* getHandle(const char* text, unsigned long len, void* const* args) const;
  // A new stream handle over the three streams at the indexes of `text` ("streams" type).
  // Throws std::invalid_argument: "empty text", "invalid decimal character", "invalid number of
  // parameters", "invalid request config stream", "invalid posted data stream", "invalid
  // response output stream".
  Handle* getIosHandle(const char* text, unsigned long len, void* const* args) const;
  // A new file handle over the three '*'-separated file names of `text` ("files" type).
  // Throws std::invalid_argument: "invalid number of parameters", "invalid request config file
  // name", "invalid posted data file name", "invalid response output file name".
  Handle* getFioHandle(const char* text, unsigned long len) const;

  // Every getter lets std::invalid_argument through and ends the process on any other
  // exception, so that only argument errors ever reach the caller.

 private:
  Context(const Context&);
  Context& operator=(const Context&);

  Handle* handle_;
  bool owns_handle_;
};

}  // namespace wsi

#endif  // WSI_CONTEXT_HPP
