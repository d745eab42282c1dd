#include "tests/support/StreamCapture.h"

#include <iostream>
#include <stdexcept>
#include <unistd.h>

namespace {

void flushAll() {
  std::cout.flush();
  fflush(nullptr);
}

}  // namespace

StreamCapture::StreamCapture(int descriptor)
    : descriptor_(descriptor), saved_(-1), file_(std::tmpfile()) {
  if (file_ == nullptr) {
    throw std::runtime_error("cannot create a temp file");
  }
  flushAll();
  saved_ = dup(descriptor);
  dup2(fileno(file_), descriptor);
}

StreamCapture::~StreamCapture() {
  stop();
  fclose(file_);
}

std::string StreamCapture::text() const {
  std::string text;
  char block[4096];
  ssize_t size = 0;
  while ((size = pread(fileno(file_), block, sizeof block, static_cast<off_t>(text.size()))) > 0) {
    text.append(block, static_cast<std::size_t>(size));
  }
  return text;
}

std::string StreamCapture::stop() {
  if (saved_ >= 0) {
    flushAll();
    dup2(saved_, descriptor_);
    close(saved_);
    saved_ = -1;
  }
  return text();
}

StdoutCapture::StdoutCapture() : StreamCapture(STDOUT_FILENO) {}

StderrCapture::StderrCapture() : StreamCapture(STDERR_FILENO) {}
