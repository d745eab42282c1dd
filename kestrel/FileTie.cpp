#include "kestrel/FileTie.h"

#include "kestrel/PortableFile.h"
#include "kestrel/PortableFileProcessor.h"
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
  fileProcessor_.reset();
  localProcessor_.reset();
}

bool FileTie::_start(PortableFile* source) {
  fileProcessor_ =
      std::make_unique<PortableFileProcessor>(source, localProcessor_.get(), BLOCK_SIZE);
  return fileProcessor_->isRegistered();
}

void FileTie::LocalFileProcessor::processBuffer(const char* data, int length) {
  while (length > 0) {
    const int written = target_->write(data, static_cast<unsigned>(length));
    if (written <= 0) {
      return;
    }
    data += written;
    length -= written;
  }
}

void FileTie::LocalStreamProcessor::processBuffer(const char* data, int length) {
  if (length > 0) {
    target_->write(data, length);
  }
}

}  // namespace kestrel
