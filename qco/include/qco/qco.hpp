// The connector between the web server and a host program: request and response messages over
// one byte-stream connection.
//
// Wire format, both directions: a message is a sequence of frames, each a 32-bit big-endian
// length followed by that many payload bytes, closed by a frame of length 0. A request message
// carries the request's record block followed by the posted data; a response message carries the
// response's record block followed by the body.
#ifndef QCO_QCO_HPP
#define QCO_QCO_HPP

#include <iostream>
#include <streambuf>

#include <wsi/export.h>

namespace qco {

class QorvaConnector;

// The stream buffer of a connector: reads the payload of the current request message and writes
// frames of the current response message. Reading and writing use fixed buffers; nothing is
// ever allocated according to a length the peer sent.
class WSI_API QorvaStreamBuf : public std::streambuf {
 public:
  enum { buffer_size = 16384 };

  QorvaStreamBuf(QorvaConnector* owner, int in_fd, int out_fd);
  virtual ~QorvaStreamBuf();

  // The connector this buffer serves. Read directly by the web server interface.
  QorvaConnector* connector;
  // The last error code, 0 when none (QorvaConnector::ErrorNameOf names it). Read directly by
  // the web server interface.
  int error;

 protected:
  virtual int_type underflow();
  virtual int_type overflow(int_type c);
  virtual int sync();

 private:
  friend class QorvaConnector;
  QorvaStreamBuf(const QorvaStreamBuf&);
  QorvaStreamBuf& operator=(const QorvaStreamBuf&);

  int in_fd_;
  int out_fd_;
  int timeout_ms_;                   // how long a read inside a message may wait
  unsigned long frame_left_;         // payload bytes of the current frame not yet read
  bool message_started_;             // a byte of the current request message has arrived
  bool message_ended_;               // the end frame of the current request message was read
  char in_buf_[buffer_size];
  char out_buf_[buffer_size];
};

// The connector stream: an iostream over a QorvaStreamBuf.
class WSI_API QorvaStream : public std::iostream {
 public:
  explicit QorvaStream(QorvaStreamBuf* buf);
  virtual ~QorvaStream();
};

// A connector over a connected stream socket, or over a readable and a writable descriptor. It
// never closes the descriptors, never raises SIGPIPE, and never blocks forever: a peer that
// closed ends a read at once, a peer that stops sending inside a message fails the read after
// the timeout.
class WSI_API QorvaConnector {
 public:
  // Error codes, as the stream buffer's `error` holds them.
  enum Error {
    no_error = 0,
    read_failed = 1,         // reading from the descriptor failed
    write_failed = 2,        // writing to the descriptor failed
    closed_in_message = 3,   // the peer closed the connection inside a message
    timed_out = 4,           // the peer sent nothing inside a message for the timeout
    connection_ended = 17    // the peer closed the connection between messages
  };
  // The timeout of a new connector, in milliseconds.
  enum { default_timeout_ms = 30000 };

  explicit QorvaConnector(int fd);
  QorvaConnector(int in_fd, int out_fd);
  virtual ~QorvaConnector();

  // The connector stream: read the request message from it, write the response message to it.
  std::iostream& stream();

  // Sends what is pending of the response and the end frame, then skips what is left unread of
  // the current request message, so that the next read starts the next request. Returns 0 on
  // success and the error code when that failed.
  int PrepareToReceive() const;

  // A printable name for an error code; never null.
  static const char* ErrorNameOf(int code);

  // The last error code of the stream buffer.
  int lastError() const;

  // How long a read inside a message may wait for the peer, in milliseconds (at least 1).
  void setTimeout(int milliseconds);
  int timeout() const;

 private:
  QorvaConnector(const QorvaConnector&);
  QorvaConnector& operator=(const QorvaConnector&);

  mutable QorvaStreamBuf buf_;
  QorvaStream stream_;
};

}  // namespace qco

#endif  // QCO_QCO_HPP
