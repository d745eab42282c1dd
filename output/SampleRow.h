// Rows of the "samples" table that are not text yet: what they refer to has been found.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

struct SampleRow {
  // An address, and the key of the function or map that it refers to.
  struct Place {
    uint64_t address = 0;
    uint64_t key = 0;
  };

  uint32_t number = 0;  // the row's key, from 1
  uint32_t cpu = 0;
  uint32_t tid = 0;
  uint32_t callers = 0;  // how many there are
  double time = 0.0;     // seconds
  Place place;           // the sampled one
};

// Complete rows, one after the other, and perhaps one in hand behind them, which counts for nothing
// before its end. The callers of all of them stand in one piece.
class SampleRowBatch {
 public:
  // Takes all of its memory at once.
  SampleRowBatch() : rows_(MOST_ROWS), callers_(ENOUGH_CALLERS) {}

  bool isEmpty() const { return rowCount_ == 0; }
  bool isFull() const { return rowCount_ == MOST_ROWS || callerCount_ >= ENOUGH_CALLERS; }
  bool hasRowInHand() const { return hasRowInHand_; }
  void clear() {
    rowCount_ = 0;
    callerCount_ = 0;
    hasRowInHand_ = false;
  }

  // Begins a row, to be filled in, but for the number of its callers: that of those that are added,
  // `mostCallers` at most. Not when the batch is full.
  SampleRow& begin(std::size_t mostCallers) {
    firstCaller_ = callerCount_;
    if (callerCount_ + mostCallers > callers_.size()) {
      callers_.resize(callerCount_ + mostCallers);
    }
    hasRowInHand_ = true;
    return rows_[rowCount_];
  }
  void addCaller(const SampleRow::Place& caller) { callers_[callerCount_++] = caller; }
  void end() {
    rows_[rowCount_++].callers = static_cast<uint32_t>(callerCount_ - firstCaller_);
    hasRowInHand_ = false;
  }

  std::span<const SampleRow> rows() const { return {rows_.data(), rowCount_}; }
  const SampleRow::Place* callers() const { return callers_.data(); }

 private:
  // 112 KiB in all, save for very long back traces.
  static constexpr std::size_t MOST_ROWS = 1024;
  static constexpr std::size_t ENOUGH_CALLERS = 4096;

  std::vector<SampleRow> rows_;
  std::size_t rowCount_ = 0;
  bool hasRowInHand_ = false;
  std::vector<SampleRow::Place> callers_;
  std::size_t callerCount_ = 0;
  std::size_t firstCaller_ = 0;  // of the row in hand
};
