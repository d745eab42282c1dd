// One end of a pipe. A named pipe that is read outlives its writers: at the end of data it is
// opened again and waits for the next writer. Descriptors are close-on-exec and closed with the
// object. One thread at a time.
#pragma once

#include <string>

#include "kestrel/exec/PortableFile.h"

namespace kestrel {

class LinuxPipe : public PortablePipe, public LinuxFileExt {
 public:
  LinuxPipe() = default;
  ~LinuxPipe() override;
  LinuxPipe(const LinuxPipe&) = delete;
  LinuxPipe& operator=(const LinuxPipe&) = delete;

  int read(void* buffer, unsigned size) override;
  int write(const void* data, unsigned size) override;
  void flush() override {}  // nothing is kept back
  void close() override;
  void setNonBlocking(bool nonBlocking) override;
  bool isEOF() const override { return eof_; }
  PortableFileExt* ext() override { return this; }

  int openNamedPipe(const char* name, unsigned flags) override;
  LinuxPipe* openAnonymousPipe() override;

  int getFd() const override { return fd_; }
  // The pipe is an anonymous one from now on.
  void setFd(int fd) override;
  unsigned getDefaultMode() const override { return defaultMode_; }
  void setDefaultMode(unsigned mode) override { defaultMode_ = mode; }

 private:
  void _applyBlocking();
  bool _reopen();

  std::string name_;             // empty for an anonymous pipe
  int fd_ = -1;                  // owned; -1 when closed
  unsigned defaultMode_ = 0666;  // of a named pipe that is created
  int openFlags_ = 0;            // what a named pipe is opened with
  bool eof_ = false;
  bool nonBlocking_ = false;
};

}  // namespace kestrel
