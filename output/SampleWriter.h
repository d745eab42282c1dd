// Writes the "samples" table, a row at a time while the recording is read, and counts the uses of
// every thread, map and function that a row refers to. Takes the stores at construction; one thread
// only. Log: "SampleWriter".
#pragma once

#include <cstdint>
#include <optional>

#include "output/AddressResolver.h"
#include "output/RowQueue.h"
#include "output/SampleInfo.h"
#include "output/SampleRow.h"

namespace kestrel {
class JsomWriter;
}

class SampleWriter {
 public:
  enum class Mode {
    // For a document that goes where log lines go, too: what is logged between two rows, or between
    // two values of a row, stands there.
    AtOnce,
    // Many rows at a time, by a thread of its own: a fifth of the time of a conversion less.
    InBackground,
  };

  explicit SampleWriter(Mode mode = Mode::AtOnce);
  SampleWriter(const SampleWriter&) = delete;
  SampleWriter& operator=(const SampleWriter&) = delete;
  // Writes the rows of a table that got no footer.
  virtual ~SampleWriter() = default;

  // Opens the table in the writer's open object; its "data" array stays open for the rows.
  void writeHeader(kestrel::JsomWriter& writer) const;
  // Writes one row. Rows are numbered from 1. Borrows the writer until the footer is written.
  void writeSample(kestrel::JsomWriter& writer, const SampleInfo& sample) const;
  // Closes the table.
  void writeFooter(kestrel::JsomWriter& writer) const;

  // What `address` is in the thread's process: see AddressResolver.
  RangedItem* _getMemMap(ThreadInfo* thread, unsigned long long address) const;

 private:
  uint64_t _keyOf(ThreadInfo* thread, uint64_t address) const;

  ThreadStore* threads_;
  mutable uint32_t sampleCount_ = 0;
  mutable std::optional<RowQueue> queue_;          // in the background only
  mutable kestrel::JsomWriter* writer_ = nullptr;  // of the row in text_, at once only
  mutable SampleRowText text_;
  mutable AddressResolver resolver_;
};
