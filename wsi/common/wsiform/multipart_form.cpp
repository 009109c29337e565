#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>
#include <cstring>

#include <wsi/multipart_form.hpp>
#include "wsi/common/wsiform/header_params.hpp"
#include "wsi/common/wsiform/request_body.hpp"

namespace wsi {

namespace {

// Writes all of [data, data + size) to `fd`. False (errno set) on failure.
bool writeAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(fd, data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

// The folder for temporary files: `dir`, else $TMPDIR, else /tmp.
std::string tempFolder(const std::string& dir) {
  if (!dir.empty()) return dir;
  const char* env = ::getenv("TMPDIR");
  return env != 0 && *env != '\0' ? env : "/tmp";
}

// Opens an anonymous temporary file in `dir`: O_TMPFILE where the file system has it, else a
// named file unlinked at once. -1 (errno set) on failure.
int openAnonymous(const std::string& dir) {
  int fd = ::open(dir.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (fd >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return fd;
  std::string name = dir + "/wsi-upload-XXXXXX";
  fd = ::mkostemp(&name[0], O_CLOEXEC);
  if (fd >= 0) ::unlink(name.c_str());
  return fd;
}

}  // namespace

FormFile::FormFile() : size(0), fd_(-1) {}

FormFile::~FormFile() {
  if (fd_ >= 0) ::close(fd_);
}

FormFile::FormFile(FormFile&& other)
    : field(std::move(other.field)),
      filename(std::move(other.filename)),
      content_type(std::move(other.content_type)),
      size(other.size),
      data(std::move(other.data)),
      fd_(other.fd_) {
  other.fd_ = -1;
}

FormFile& FormFile::operator=(FormFile&& other) {
  if (this == &other) return *this;
  if (fd_ >= 0) ::close(fd_);
  field = std::move(other.field);
  filename = std::move(other.filename);
  content_type = std::move(other.content_type);
  size = other.size;
  data = std::move(other.data);
  fd_ = other.fd_;
  other.fd_ = -1;
  return *this;
}

bool FormFile::readAll(std::string& out) const {
  if (fd_ < 0) {
    out = data;
    return true;
  }
  out.resize(static_cast<std::size_t>(size));
  std::size_t done = 0;
  while (done < out.size()) {
    const ssize_t got = ::pread(fd_, &out[done], out.size() - done, static_cast<off_t>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      if (got == 0) errno = EIO;  // the file is shorter than it was written
      return false;
    }
    done += static_cast<std::size_t>(got);
  }
  return true;
}

MultipartFormCollector::MultipartFormCollector(MultipartForm& form,
                                               const MultipartFormLimits& limits)
    : form_(form), limits_(limits), target_(skip), memory_(0), status_(form_ok) {}

// Records the first failure; returns false so that the parser stops.
bool MultipartFormCollector::fail(FormStatus status, const std::string& message) {
  if (status_ == form_ok) {
    status_ = status;
    error_ = message;
  }
  return false;
}

bool MultipartFormCollector::partBegin(const MultipartPart& part) {
  if (part.name.empty()) {
    target_ = skip;
  } else if (part.has_filename) {
    target_ = file;
    form_.files.push_back(FormFile());
    FormFile& f = form_.files.back();
    f.field = part.name;
    f.filename = part.filename;
    f.content_type = part.content_type;
  } else {
    target_ = field;
    form_.fields.push_back(std::make_pair(part.name, std::string()));
  }
  return true;
}

// Moves the current file's content from memory to an anonymous temporary file.
bool MultipartFormCollector::spool() {
  FormFile& f = form_.files.back();
  const std::string dir = tempFolder(limits_.temp_dir);
  const int fd = openAnonymous(dir);
  if (fd < 0)
    return fail(form_failed,
                "cannot make a temporary file in '" + dir + "': " + std::strerror(errno));
  f.fd_ = fd;
  if (!writeAll(fd, f.data.data(), f.data.size()))
    return fail(form_failed, std::string("cannot write a temporary file: ") + std::strerror(errno));
  memory_ -= f.data.size();
  std::string().swap(f.data);
  return true;
}

bool MultipartFormCollector::partData(const char* data, std::size_t size) {
  if (target_ == skip) return true;
  if (target_ == file) {
    FormFile& f = form_.files.back();
    f.size += size;
    if (f.fd_ < 0 && f.size > limits_.spool_above && !spool()) return false;
    if (f.fd_ >= 0) {
      if (writeAll(f.fd_, data, size)) return true;
      return fail(form_failed,
                  std::string("cannot write a temporary file: ") + std::strerror(errno));
    }
  }
  if (size > limits_.max_memory - memory_)
    return fail(form_too_large, "the form's fields take more than " +
                                    std::to_string(limits_.max_memory) + " bytes of memory");
  memory_ += size;
  std::string& value = target_ == file ? form_.files.back().data : form_.fields.back().second;
  value.append(data, size);
  return true;
}

bool MultipartFormCollector::partEnd() {
  target_ = skip;
  return true;
}

FormStatus readMultipartForm(Request& request, MultipartForm& form, std::string& error,
                             const MultipartFormLimits& limits) {
  form.fields.clear();
  form.files.clear();
  const std::string* type = request.HttpHeaders("Content-Type");
  std::string boundary;
  if (type == 0 || !form::hasMediaType(*type, "multipart/form-data")) {
    error = "the request's Content-Type is '" + (type != 0 ? *type : std::string()) +
            "', not multipart/form-data";
    return form_unsupported;
  }
  if (!multipartBoundary(*type, boundary, error)) return form_malformed;
  MultipartFormCollector collector(form, limits);
  MultipartParser parser(boundary, collector, limits.parser);
  form::ParserSink<MultipartParser> sink(parser);
  FormStatus status = form::readBody(request, sink, limits.parser.max_body, error);
  if (status == form_ok && !parser.finish()) status = form_refused;
  if (status == form_refused) {
    // The collector's reason comes first: the parser only knows that it refused.
    status = collector.status() != form_ok ? collector.status() : parser.status();
    error = collector.status() != form_ok ? collector.error() : parser.error();
  }
  if (status != form_ok) {
    form.fields.clear();
    form.files.clear();
  }
  return status;
}

}  // namespace wsi
