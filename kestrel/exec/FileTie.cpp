#include "kestrel/exec/FileTie.h"

#include <cerrno>

#include "kestrel/exec/PortableFile.h"
#include "kestrel/exec/PortableFileProcessor.h"
#include "kestrel/log/Logger.h"

namespace kestrel {

namespace {

constexpr unsigned BLOCK_SIZE = 3072;

Logger& _log() {
  static Logger* const logger = Logger::getLogger("FileTie");
  return *logger;
}

}  // namespace

FileTie::FileTie() = default;

FileTie::~FileTie() { close(); }

bool FileTie::tie(PortableFile* source, PortableFile* target) {
  _log().tracef("%p tie(%p, %p) <-- PortableFile", static_cast<void*>(this),
                static_cast<void*>(source), static_cast<void*>(target));
  close();
  if (target != nullptr) {
    localProcessor_ = std::make_unique<LocalFileProcessor>(target);
  }
  return _start(source);
}

bool FileTie::tie(PortableFile* source, std::ostream* target) {
  _log().tracef("%p tie(%p, %p) <-- ostream", static_cast<void*>(this), static_cast<void*>(source),
                static_cast<void*>(target));
  close();
  if (target != nullptr) {
    localProcessor_ = std::make_unique<LocalStreamProcessor>(target);
  }
  return _start(source);
}

PortableFileProcessor* FileTie::getFileProcessor() const {
  const bool runs = fileProcessor_ != nullptr && fileProcessor_->isRegistered();
  return runs ? fileProcessor_.get() : nullptr;
}

void FileTie::close() {
  _log().tracef("%p close()", static_cast<void*>(this));
  if (fileProcessor_ != nullptr) {
    error_ = fileProcessor_->getError();
    fileProcessor_.reset();
    if (localProcessor_ != nullptr && localProcessor_->getError() != 0) {
      error_ = localProcessor_->getError();
    }
  }
  localProcessor_.reset();
}

bool FileTie::_start(PortableFile* source) {
  fileProcessor_ =
      std::make_unique<PortableFileProcessor>(source, localProcessor_.get(), BLOCK_SIZE);
  error_ = fileProcessor_->isRegistered() ? 0 : fileProcessor_->getError();
  return fileProcessor_->isRegistered();
}

void FileTie::LocalProcessor::noteError() {
  if (error_ == 0) {
    error_ = errno == 0 ? EIO : errno;
  }
}

void FileTie::LocalFileProcessor::processBuffer(const char* data, int length) {
  while (length > 0) {
    errno = 0;
    const int written = target_->write(data, static_cast<unsigned>(length));
    if (written <= 0) {
      noteError();
      return;
    }
    data += written;
    length -= written;
  }
}

void FileTie::LocalStreamProcessor::processBuffer(const char* data, int length) {
  if (length <= 0) {
    return;
  }
  errno = 0;
  if (!target_->write(data, length)) {
    noteError();
  }
}

}  // namespace kestrel
