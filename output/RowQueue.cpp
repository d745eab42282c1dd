#include "output/RowQueue.h"

#include <system_error>
#include <utility>

RowBatch::RowBatch() {
  rows.reserve(MOST_ROWS);
  callers.reserve(ENOUGH_CALLERS);
}

void RowBatch::clear() {
  rows.clear();
  callers.clear();
}

void RowBatch::writeTo(kestrel::JsomWriter& writer, SampleRowText& text) const {
  auto caller = callers.begin();
  for (const SampleRow& row : rows) {
    text.startRow(row);
    for (uint32_t left = row.callers; left > 0; --left) {
      text.addCaller(*caller++);
    }
    text.endRow(writer);
  }
}

RowQueue::~RowQueue() {
  try {
    finish();
  } catch (...) {
    // As announced.
  }
}

void RowQueue::submit() {
  if (!_isThreadThere()) {
    _writeOwn();
    return;
  }
  const kestrel::ScopedLock guard(lock_);
  while (free_.empty()) {
    isWaiting_ = true;
    lock_.wait();
  }
  isWaiting_ = false;
  filled_.push_back(std::exchange(batch_, std::move(free_.back())));
  free_.pop_back();
  if (filled_.size() == WORTH_WAKING) {
    lock_.notifyAll();
  }
  _rethrowFailure();
}

// Started when there is enough to do for it: many recordings are small. False when the system gives
// no thread.
bool RowQueue::_isThreadThere() {
  if (thread_.joinable()) {
    return true;
  }
  {
    const kestrel::ScopedLock guard(lock_);
    isEnding_ = false;
    while (free_.size() < BATCHES - 1) {
      free_.push_back(std::make_unique<RowBatch>());
    }
  }
  try {
    thread_ = std::thread(&RowQueue::_run, this, writer_);
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

void RowQueue::finish() {
  if (thread_.joinable()) {
    {
      const kestrel::ScopedLock guard(lock_);
      isEnding_ = true;
      lock_.notifyAll();
    }
    thread_.join();
    const kestrel::ScopedLock guard(lock_);
    _rethrowFailure();
  }
  _writeOwn();
}

void RowQueue::_writeOwn() {
  if (!batch_->rows.empty()) {
    SampleRowText text(timePrecision_);
    batch_->writeTo(*writer_, text);
  }
  batch_->clear();
}

void RowQueue::_rethrowFailure() {
  if (failure_) {
    batch_->clear();  // rows behind those that are missing
    std::rethrow_exception(std::exchange(failure_, nullptr));
  }
}

// Writes batches in their order until there are no more to come. After a failure it only takes
// them.
void RowQueue::_run(kestrel::JsomWriter* writer) {
  // On this thread's stack: a text beside what the other thread touches would slow both down.
  SampleRowText text(timePrecision_);
  kestrel::ScopedLock guard(lock_);
  bool hasFailed = false;
  while (!isEnding_ || !filled_.empty()) {
    if (filled_.empty()) {
      while (filled_.size() < WORTH_WAKING && !isEnding_) {
        lock_.wait();
      }
      continue;
    }
    std::unique_ptr<RowBatch> batch = std::move(filled_.front());
    filled_.pop_front();
    guard.unlock();
    std::exception_ptr failure;
    try {
      if (!hasFailed) {
        batch->writeTo(*writer, text);
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
