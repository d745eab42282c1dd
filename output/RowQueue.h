// Rows of the "samples" table by the batch, and the thread that makes them into text and writes
// them while the next ones are made.
#pragma once

#include <deque>
#include <exception>
#include <memory>
#include <thread>
#include <vector>

#include "kestrel/threads/Lock.h"
#include "output/SampleRow.h"

// Rows, and the callers of all of them one behind the other. What stands behind those of the last
// row counts for nothing.
struct RowBatch {
  RowBatch();  // takes its memory at once

  bool isFull() const { return rows.size() >= MOST_ROWS || callers.size() >= ENOUGH_CALLERS; }
  void clear();
  void writeTo(kestrel::JsomWriter& writer, SampleRowText& text) const;

  // 112 KiB in all, save for very long back traces.
  static constexpr std::size_t MOST_ROWS = 1024;
  static constexpr std::size_t ENOUGH_CALLERS = 4096;

  std::vector<SampleRow> rows;
  std::vector<SampleRow::Caller> callers;
};

// One thread gives the rows; it leaves the writer alone until finish().
class RowQueue {
 public:
  // `timePrecision` is the number of digits of the times.
  explicit RowQueue(int timePrecision) : timePrecision_(timePrecision) {}
  RowQueue(const RowQueue&) = delete;
  RowQueue& operator=(const RowQueue&) = delete;
  // Writes what is left. Errors are lost: whoever wants to know of them calls finish().
  ~RowQueue();

  // The batch to be filled, another one after each submit(), for the array that the writer has
  // open. Borrows the writer, the same for all batches, until finish().
  RowBatch& batch(kestrel::JsomWriter& writer) {
    writer_ = &writer;
    return *batch_;
  }
  // Has the batch written. Throws what has kept the thread from writing an earlier one.
  void submit();
  // Returns when every row is written, those of the batch in hand included. Throws what has kept
  // the thread from writing them all; what it has written are whole rows.
  void finish();

 private:
  // So many that neither side waits long for the other on a busy machine; more are no faster. They
  // exist from the start, so that the memory of a conversion does not depend on who was faster.
  static constexpr std::size_t BATCHES = 12;
  // The thread is woken for some of them at a time: waking it is not free.
  static constexpr std::size_t WORTH_WAKING = 4;

  void _run(kestrel::JsomWriter* writer);
  bool _isThreadThere();
  void _writeOwn();
  void _rethrowFailure() KESTREL_REQUIRES(lock_);

  int timePrecision_;
  kestrel::JsomWriter* writer_ = nullptr;  // given to the thread when it begins
  std::unique_ptr<RowBatch> batch_ = std::make_unique<RowBatch>();

  // Not one of a thread group: those log what they do, and a log must not depend on how many
  // samples there are.
  std::thread thread_;

  kestrel::RequiredLock lock_;
  std::deque<std::unique_ptr<RowBatch>> filled_ KESTREL_GUARDED_BY(lock_);
  std::vector<std::unique_ptr<RowBatch>> free_ KESTREL_GUARDED_BY(lock_);
  bool isWaiting_ KESTREL_GUARDED_BY(lock_) = false;  // for a free batch
  bool isEnding_ KESTREL_GUARDED_BY(lock_) = false;
  std::exception_ptr failure_ KESTREL_GUARDED_BY(lock_);
};
