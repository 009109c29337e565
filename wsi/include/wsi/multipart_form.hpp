// A whole multipart/form-data request read at once: small fields collected in a table, files
// kept in memory up to a size and spooled above it to anonymous temporary files.
#ifndef WSI_MULTIPART_FORM_HPP
#define WSI_MULTIPART_FORM_HPP

#include <cstddef>
#include <string>
#include <vector>

#include <wsi/export.h>
#include <wsi/form_types.hpp>
#include <wsi/interface.hpp>
#include <wsi/multipart.hpp>

namespace wsi {

// Bounds on one form: the parser's, and what is kept in memory.
struct MultipartFormLimits {
  MultipartLimits parser;
  std::size_t max_memory;   // bytes of field values and in-memory files together; default 1 MiB
  std::size_t spool_above;  // a file larger than this goes to a temporary file; default 64 KiB
  std::string temp_dir;     // where temporary files are made; empty: $TMPDIR, else /tmp
  MultipartFormLimits() : max_memory(1u << 20), spool_above(64 * 1024) {}
};

// One uploaded file. Its content is either in `data` (fd() is -1) or in an anonymous temporary
// file (opened with O_TMPFILE, or made and unlinked at once) that nothing can open by name and
// that disappears when the descriptor is closed, with the object. The file name is the one the
// client sent: never use it as a path.
class WSI_API FormFile {
 public:
  FormFile();
  ~FormFile();
  FormFile(FormFile&& other);
  FormFile& operator=(FormFile&& other);

  std::string field;         // the form field's name
  std::string filename;      // the file name as sent (filename* decoded)
  std::string content_type;  // the part's Content-Type as sent
  unsigned long long size;   // bytes of content
  std::string data;          // the content, when it stayed in memory

  // The temporary file holding the content (read it with pread from offset 0), or -1.
  int fd() const { return fd_; }
  // Reads the whole content into `out`, from memory or from the temporary file. False (with
  // errno set) when the file cannot be read.
  bool readAll(std::string& out) const;
  FormFile(const FormFile&) = delete;
  FormFile& operator=(const FormFile&) = delete;

 private:
  friend class MultipartFormCollector;
  int fd_;
};

// The fields and files of one form, in arrival order.
struct MultipartForm {
  NameValuePairs fields;
  std::vector<FormFile> files;
};

// A handler that collects a form: parts with a file name become files, others fields; parts
// without a name are skipped. On a limit it refuses, and error() says which.
class WSI_API MultipartFormCollector : public MultipartHandler {
 public:
  MultipartFormCollector(MultipartForm& form, const MultipartFormLimits& limits);
  bool partBegin(const MultipartPart& part);
  bool partData(const char* data, std::size_t size);
  bool partEnd();
  FormStatus status() const { return status_; }
  const std::string& error() const { return error_; }

 private:
  WSI_LOCAL bool fail(FormStatus status, const std::string& message);
  WSI_LOCAL bool spool();

  MultipartForm& form_;
  MultipartFormLimits limits_;
  enum Target { skip, field, file } target_;
  std::size_t memory_;
  FormStatus status_;
  std::string error_;
};

// Reads the posted data of `request` as multipart/form-data into `form`, with the boundary of
// the request's Content-Type. On any failure `form` is left empty (temporary files closed, so
// they are gone), `error` says why, and the status names the kind: form_unsupported for another
// Content-Type, form_malformed for a broken body or a body shorter than its Content-Length,
// form_too_large for a limit, form_failed for reading or a temporary file.
WSI_API FormStatus readMultipartForm(Request& request, MultipartForm& form, std::string& error,
                                     const MultipartFormLimits& limits = MultipartFormLimits());

}  // namespace wsi

#endif  // WSI_MULTIPART_FORM_HPP
