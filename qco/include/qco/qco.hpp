// The connector between the web server and a host program: request and response messages over
// one byte-stream connection.
//
// Wire format, both directions: a message is a sequence of frames, each a 32-bit big-endian
// length followed by that many payload bytes, closed by a frame of length 0. A request message
// carries the request's record block followed by the posted data; a response message carries the
// response's record block followed by the body. A frame longer than max_frame_length is
// malformed.
#ifndef QCO_QCO_HPP
#define QCO_QCO_HPP

#include <cstddef>
#include <iostream>
#include <streambuf>

#include <qco/export.hpp>

namespace qco {

class QorvaConnector;

// The stream buffer of a connector: reads the payload of the current request message and writes
// frames of the current response message. Reading and writing use fixed buffers; nothing is
// ever allocated according to a length the peer sent.
class QCO_API QorvaStreamBuf : public std::streambuf {
 public:
  // The size of the read buffer and the largest payload of one frame this side sends.
  enum { buffer_size = 16384 };

  // A buffer for `owner`, reading from `in_fd` and writing to `out_fd` (which may be equal).
  QorvaStreamBuf(QorvaConnector* owner, int in_fd, int out_fd);
  virtual ~QorvaStreamBuf();

  // The connector this buffer serves. Read directly by the web server interface.
  QorvaConnector* connector;
  // The last error code, 0 when none (QorvaConnector::ErrorNameOf names it). Read directly by
  // the web server interface.
  int error;

 protected:
  // Hands out the next payload bytes of the current request message; end of file at its end
  // frame (error 0) or on a failure (error set).
  virtual int_type underflow();
  // Sends the pending bytes as one frame, then stores `c`.
  virtual int_type overflow(int_type c);
  // Sends the pending bytes as one frame; nothing when none are pending.
  virtual int sync();

 private:
  friend class QorvaConnector;
  QorvaStreamBuf(const QorvaStreamBuf&);
  QorvaStreamBuf& operator=(const QorvaStreamBuf&);

  QCO_LOCAL bool fillRaw();
  QCO_LOCAL bool readFrameHeader();
  QCO_LOCAL bool sendPending(bool endMessage);
  QCO_LOCAL bool skipRestOfMessage();
  QCO_LOCAL int endMessage();
  QCO_LOCAL int nextMessage();
  QCO_LOCAL void failInput(int code);
  QCO_LOCAL void failOutput(int code);

  int in_fd_;
  int out_fd_;
  bool out_is_socket_;
  int timeout_ms_;            // how long a read inside a message may wait
  unsigned long frame_left_;  // payload bytes of the current frame not yet handed out
  bool message_started_;      // a byte of the current request message has been taken
  bool message_ended_;        // the end frame of the current request message was read
  int in_error_;              // the failure that ended reading, 0 while reading works
  int out_error_;             // the failure that ended writing, 0 while writing works
  std::size_t raw_begin_;     // unparsed bytes of in_buf_ run from raw_begin_ to raw_end_
  std::size_t raw_end_;
  char in_buf_[buffer_size];
  // A frame header, up to buffer_size payload bytes and room for the end frame, so that a frame
  // (and the end of a message) goes out in one write.
  char out_buf_[buffer_size + 8];
};

// The connector stream: an iostream over a QorvaStreamBuf.
class QCO_API QorvaStream : public std::iostream {
 public:
  explicit QorvaStream(QorvaStreamBuf* buf);
  virtual ~QorvaStream();
};

// A connector over a connected stream socket, or over a readable and a writable descriptor. It
// never closes the descriptors, never raises SIGPIPE, and never blocks forever inside a message:
// a peer that closed ends a read at once, a peer that stops sending (or reading, on a socket)
// inside a message fails the operation after the timeout. Waiting for the first byte of the next
// request has no time limit.
class QCO_API QorvaConnector {
 public:
  // Error codes, as the stream buffer's `error` holds them; ErrorNameOf gives their texts.
  enum Error {
    no_error = 0,
    read_failed = 1,        // reading from the descriptor failed
    write_failed = 2,       // writing to the descriptor failed
    closed_in_message = 3,  // the peer closed the connection inside a request message
    timed_out = 4,          // the peer neither sent nor took a byte for the timeout
    malformed_frame = 5,    // a frame announced more than max_frame_length bytes
    peer_closed = 6,        // the peer closed the connection while a response was written
    connection_ended = 17   // the peer closed the connection between messages
  };
  enum {
    // The timeout of a new connector, in milliseconds.
    default_timeout_ms = 30000,
    // The longest frame accepted from the peer: 16 MiB.
    max_frame_length = 0x01000000
  };

  explicit QorvaConnector(int fd);
  QorvaConnector(int in_fd, int out_fd);
  virtual ~QorvaConnector();

  // The connector stream: read the request message from it, write the response message to it.
  std::iostream& stream();

  // Sends what is pending of the response and the end frame, then skips what is left unread of
  // the current request message and clears the stream's state, so that the next read starts the
  // next request. Returns 0 on success and the error code when that failed. It is
  // EndMessage() followed by SkipRestOfMessage().
  int PrepareToReceive() const;

  // Sends what is pending and the end frame: the message written so far is complete. Returns 0,
  // or the error code.
  int EndMessage() const;

  // Reads and drops what is left unread of the current incoming message (nothing when none of it
  // has been read yet) and clears the stream's state, so that the next read starts the next
  // message. Returns 0, or the error code. The web server's side of a connection uses these two
  // halves, which may run on two connectors over one socket, one for each direction.
  int SkipRestOfMessage() const;

  // A printable name for an error code; never null.
  static const char* ErrorNameOf(int code);

  // The last error code of the stream buffer.
  int lastError() const;

  // How long a read or write inside a message may wait for the peer, in milliseconds; values
  // below 1 are taken as 1.
  void setTimeout(int milliseconds);
  int timeout() const;

 private:
  QorvaConnector(const QorvaConnector&);
  QorvaConnector& operator=(const QorvaConnector&);

  mutable QorvaStreamBuf buf_;
  mutable QorvaStream stream_;
};

}  // namespace qco

#endif  // QCO_QCO_HPP
