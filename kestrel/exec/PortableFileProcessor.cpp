#include "kestrel/exec/PortableFileProcessor.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "kestrel/BlockProcessor.h"
#include "kestrel/exec/PortableFile.h"
#include "kestrel/log/Logger.h"
#include "kestrel/threads/Deadline.h"

namespace kestrel {

namespace {

Logger& _log() {
  static Logger* const logger = Logger::getLogger("PortableFileProcessor");
  return *logger;
}

}  // namespace

void PortableFileProcessor::FreeBuffer::operator()(char* buffer) const { std::free(buffer); }

PortableFileProcessor::PortableFileProcessor(PortableFile* file, BlockProcessor* processor,
                                             unsigned bufferSize)
    : processor_(processor), bufferSize_(bufferSize == 0 ? 1 : bufferSize) {
  _log().tracef("%p constructor", static_cast<void*>(this));
  if (file == nullptr || processor_ == nullptr) {
    _log().warnf("%p null file or processor", static_cast<void*>(this));
    return;
  }
  registered_ = _start(file);
}

PortableFileProcessor::~PortableFileProcessor() {
  _log().tracef("%p destructor", static_cast<void*>(this));
  PortableFileProcessor::close();
}

bool PortableFileProcessor::waitTilDone(unsigned milliseconds) {
  _log().tracef("%p waitTilDone(%u)", static_cast<void*>(this), milliseconds);
  const Deadline deadline(milliseconds);
  const ScopedLock guard(lock_);
  while (!done_ && !deadline.passed()) {
    lock_.wait(deadline.remaining());
  }
  return done_;
}

void PortableFileProcessor::close() {
  _log().tracef("%p close()", static_cast<void*>(this));
  // The selector's thread may be waiting for the lock in onClose(): nobody holds it while the
  // selector is closed.
  lock_.lock();
  std::unique_ptr<PortableSelector> selector = std::move(selector_);
  const bool done = done_;
  lock_.unlock();
  if (selector != nullptr && !done) {
    selector->closeSelector();
  }
  selector.reset();
  buffer_.reset();
}

bool PortableFileProcessor::onCanRead(PortableSelector* selector, PortableFile* file) {
  const unsigned reads = readsPerReadiness_;
  for (unsigned i = 0; i < reads; ++i) {
    const int count = file->read(buffer_.get(), bufferSize_);
    if (count == PortableFile::WOULD_BLOCK) {
      return true;
    }
    if (count < 0) {
      _setError(errno);
      onError(selector, file, count);
      return false;
    }
    if (count == 0) {
      _setError(0);
      return false;
    }
    processor_->processBuffer(buffer_.get(), count);
  }
  return true;
}

void PortableFileProcessor::onError(PortableSelector* selector, PortableFile* file, int error) {
  _log().tracef("%p onError(%p, %p, %d)", static_cast<void*>(this), static_cast<void*>(selector),
                static_cast<void*>(file), error);
  char message[256];
  std::snprintf(message, sizeof(message), "File processing error %d", error);
  _log().warnf("%p %s", static_cast<void*>(this), message);
  processor_->processError(message);
}

void PortableFileProcessor::onClose(PortableSelector* selector, PortableFile* /*file*/) {
  const ScopedLock guard(lock_);
  if (!done_) {
    if (error_ == ECANCELED && selector != nullptr && selector->getError() != 0) {
      error_ = selector->getError();
    }
    processor_->processEOF();
    done_ = true;
    lock_.notifyAll();
  }
}

// False when the file could not be handed to a selector.
bool PortableFileProcessor::_start(PortableFile* file) {
  buffer_.reset(static_cast<char*>(std::malloc(bufferSize_)));
  if (buffer_ == nullptr) {
    _setError(ENOMEM);
    _log().warnf("%p could not allocate buffer size %u", static_cast<void*>(this), bufferSize_);
    return false;
  }
  file->setNonBlocking(true);
  std::unique_ptr<PortableSelector> selector(PortableSelectorFactory::createSelector());
  if (selector == nullptr) {
    _setError(ENOMEM);
    _log().warnf("%p could not allocate selector", static_cast<void*>(this));
    return false;
  }
  // Before the file is registered: it may be at its end, and closed, before addFile() returns.
  _setDone(false);
  if (!selector->addFile(file, this)) {
    _setDone(true);
    _setError(selector->getError() == 0 ? EBADF : selector->getError());
    _log().warnf("%p addFile failed", static_cast<void*>(this));
    return false;
  }
  const ScopedLock guard(lock_);
  selector_ = std::move(selector);
  return true;
}

int PortableFileProcessor::getError() const {
  const ScopedLock guard(lock_);
  return error_;
}

void PortableFileProcessor::_setError(int error) {
  const ScopedLock guard(lock_);
  error_ = error;
}

void PortableFileProcessor::_setDone(bool done) {
  const ScopedLock guard(lock_);
  done_ = done;
}

}  // namespace kestrel
