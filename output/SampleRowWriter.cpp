#include "output/SampleRowWriter.h"

#include <system_error>
#include <utility>

SampleRowWriter::~SampleRowWriter() {
  try {
    finish();
  } catch (...) {
    // As announced.
  }
}

void SampleRowWriter::end() {
  if (isPartlyWritten_) {
    SampleRowText::end(*writer_);
    isPartlyWritten_ = false;
    return;
  }
  batch_->end();
  if (mode_ == Mode::AtOnce) {
    _writeOwn();
  } else if (batch_->isFull()) {
    _submit();
  }
}

void SampleRowWriter::expectLogLine() {
  if (mode_ == Mode::InBackground || !batch_->hasRowInHand()) {
    return;
  }
  batch_->end();
  text_.begin(*writer_, batch_->rows().back(), batch_->callers());
  batch_->clear();
  isPartlyWritten_ = true;
}

void SampleRowWriter::_writeOwn() {
  text_.write(*writer_, *batch_);
  batch_->clear();
}

void SampleRowWriter::_submit() {
  if (!_isBackgroundThere()) {
    _writeOwn();
    return;
  }
  const kestrel::ScopedLock guard(lock_);
  std::unique_ptr<SampleRowBatch> next = _emptyBatch();
  filled_.push_back(std::exchange(batch_, std::move(next)));
  if (filled_.size() == WORTH_WAKING) {
    lock_.notifyAll();
  }
  _rethrowFailure();
}

// Started when there is enough to do for it: many recordings are small. False when the system gives
// no thread.
bool SampleRowWriter::_isBackgroundThere() {
  if (background_.joinable()) {
    return true;
  }
  {
    const kestrel::ScopedLock guard(lock_);
    isEnding_ = false;
    free_.reserve(BATCHES);
    while (free_.size() < BATCHES - 1) {
      free_.push_back(std::make_unique<SampleRowBatch>());
    }
  }
  try {
    background_ = std::thread(&SampleRowWriter::_runBackground, this, writer_);
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

std::unique_ptr<SampleRowBatch> SampleRowWriter::_emptyBatch() {
  while (free_.empty()) {
    isWaiting_ = true;
    lock_.wait();
  }
  isWaiting_ = false;
  std::unique_ptr<SampleRowBatch> batch = std::move(free_.back());
  free_.pop_back();
  return batch;
}

void SampleRowWriter::finish() {
  if (background_.joinable()) {
    {
      const kestrel::ScopedLock guard(lock_);
      isEnding_ = true;
      lock_.notifyAll();
    }
    background_.join();
    const kestrel::ScopedLock guard(lock_);
    _rethrowFailure();
  }
  if (!batch_->isEmpty()) {
    _writeOwn();
  }
}

void SampleRowWriter::_rethrowFailure() {
  if (failure_) {
    batch_->clear();  // rows behind those that are missing
    std::rethrow_exception(std::exchange(failure_, nullptr));
  }
}

// Writes batches in their order until there are no more to come. After a failure it only takes
// them.
void SampleRowWriter::_runBackground(kestrel::JsomWriter* writer) {
  kestrel::ScopedLock guard(lock_);
  bool hasFailed = false;
  while (!isEnding_ || !filled_.empty()) {
    if (filled_.empty()) {
      while (filled_.size() < WORTH_WAKING && !isEnding_) {
        lock_.wait();
      }
      continue;
    }
    std::unique_ptr<SampleRowBatch> batch = std::move(filled_.front());
    filled_.pop_front();
    guard.unlock();
    std::exception_ptr failure;
    try {
      if (!hasFailed) {
        text_.write(*writer, *batch);
      }
    } catch (...) {
      failure = std::current_exception();
      hasFailed = true;
    }
    batch->clear();
    guard.lock();
    if (failure) {
      failure_ = failure;
    }
    free_.push_back(std::move(batch));
    if (isWaiting_) {
      lock_.notifyAll();
    }
  }
}
