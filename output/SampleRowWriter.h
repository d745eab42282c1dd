// Takes the rows of the "samples" table and sees to it that they are written: each one as soon as
// it is complete, or many at a time in the background, while the next ones are made. One thread
// gives the rows; it leaves the writer alone until finish().
#pragma once

#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <thread>
#include <vector>

#include "kestrel/Lock.h"
#include "output/SampleRow.h"
#include "output/SampleRowText.h"

namespace kestrel {
class JsomWriter;
}

class SampleRowWriter {
 public:
  enum class Mode {
    // For a document that goes where log lines may go, too: what is logged between two rows, or
    // between two values of a row, stands there.
    AtOnce,
    // A fifth of the time of a conversion less, where there is a second processor.
    InBackground,
  };

  // `timePrecision` is the number of digits of the times.
  SampleRowWriter(Mode mode, int timePrecision) : mode_(mode), text_(timePrecision) {}
  SampleRowWriter(const SampleRowWriter&) = delete;
  SampleRowWriter& operator=(const SampleRowWriter&) = delete;
  // Writes what is left of complete rows. Errors are lost: whoever wants to know of them calls
  // finish().
  ~SampleRowWriter();

  // Begins a row in the array that the writer has open, and returns it to be filled, but for the
  // number of its callers. Borrows the writer, the same for all rows, until finish().
  SampleRow& begin(kestrel::JsomWriter& writer, std::size_t mostCallers) {
    writer_ = &writer;
    return batch_->begin(mostCallers);
  }
  // At most as many as begin() was told.
  void addCaller(const SampleRow::Place& caller) {
    if (isPartlyWritten_) {
      SampleRowText::addCaller(*writer_, caller);
    } else {
      batch_->addCaller(caller);
    }
  }
  void end();

  // Something is about to be logged: what was given of the row in hand stands before it.
  void expectLogLine();

  // Returns when every row is written. Throws what has kept the background from writing them all;
  // what it has written are whole rows.
  void finish();

 private:
  // So many that neither side waits long for the other on a busy machine; more are no faster. They
  // exist from the start, so that the memory of a conversion does not depend on who was faster.
  static constexpr std::size_t BATCHES = 12;
  // The background is woken for some of them at a time: waking it is not free.
  static constexpr std::size_t WORTH_WAKING = 4;

  void _runBackground(kestrel::JsomWriter* writer);
  void _submit();
  bool _isBackgroundThere();
  std::unique_ptr<SampleRowBatch> _emptyBatch() KESTREL_REQUIRES(lock_);
  void _writeOwn();
  void _rethrowFailure() KESTREL_REQUIRES(lock_);

  const Mode mode_;
  SampleRowText text_;                     // the background's while it runs
  kestrel::JsomWriter* writer_ = nullptr;  // given to the background when it begins
  bool isPartlyWritten_ = false;           // the row in hand
  std::unique_ptr<SampleRowBatch> batch_ = std::make_unique<SampleRowBatch>();

  // Not one of a thread group: those log what they do, and a log must not depend on how many
  // samples there are.
  std::thread background_;

  kestrel::RequiredLock lock_;
  std::deque<std::unique_ptr<SampleRowBatch>> filled_ KESTREL_GUARDED_BY(lock_);
  std::vector<std::unique_ptr<SampleRowBatch>> free_ KESTREL_GUARDED_BY(lock_);
  bool isWaiting_ KESTREL_GUARDED_BY(lock_) = false;  // for a free batch
  bool isEnding_ KESTREL_GUARDED_BY(lock_) = false;
  std::exception_ptr failure_ KESTREL_GUARDED_BY(lock_);
};
