// Files and pipes that are read and written by descriptor, as the selector needs them. One thread
// at a time.
#pragma once

namespace kestrel {

// What is special to a platform about a file; PortableFile::ext() gives it.
class PortableFileExt {
 public:
  virtual ~PortableFileExt() = default;
};

class LinuxFileExt : public PortableFileExt {
 public:
  // -1 while the file is closed.
  virtual int getFd() const = 0;
  // Takes ownership of an open descriptor; the one held so far is closed. Clears the end-of-file
  // flag. A file that was set non-blocking makes the descriptor so.
  virtual void setFd(int fd) = 0;
  // The permission bits that a file is created with, before the process's mask.
  virtual unsigned getDefaultMode() const = 0;
  virtual void setDefaultMode(unsigned mode) = 0;
};

class PortableFile {
 public:
  // The results of read() and write() that are no counts.
  static constexpr int WOULD_BLOCK = -1;
  static constexpr int FAILED = -2;

  virtual ~PortableFile() = default;

  // The number of bytes read, at most `size`; 0 at the end of data; WOULD_BLOCK; FAILED, also when
  // the file is closed.
  virtual int read(void* buffer, unsigned size) = 0;
  // The number of bytes written, possibly fewer than `size`; WOULD_BLOCK; FAILED, also when the
  // file is closed.
  virtual int write(const void* data, unsigned size) = 0;
  virtual void flush() = 0;
  virtual void close() = 0;
  // May be set before the file is opened.
  virtual void setNonBlocking(bool nonBlocking) = 0;
  // Whether the end of data has been read.
  virtual bool isEOF() const = 0;
  // Owned by the file. Null when it has none.
  virtual PortableFileExt* ext() = 0;
};

class PortablePipe : public PortableFile {
 public:
  // Results of openNamedPipe(); anything else that goes wrong is FAILED.
  static constexpr int OPENED = 0;
  static constexpr int NO_PERMISSION = -3;
  static constexpr int NOT_FOUND = -4;
  static constexpr int NOT_A_PIPE = -5;

  // Opens the FIFO `name`; the flags are those of open(2), of which the access mode, O_APPEND and
  // O_CREAT count. With O_CREAT it is made first unless it is there. A pipe that is open is closed
  // first. Opening a blocking pipe waits for the other side.
  virtual int openNamedPipe(const char* name, unsigned flags) = 0;
  // Opens a new pipe: this object is the end to read from, the result the end to write to, owned by
  // the caller. Null when the system gives none. A pipe that is open is closed first.
  virtual PortablePipe* openAnonymousPipe() = 0;
};

}  // namespace kestrel
