// Writes the "samples" table, a row at a time while the recording is read, and counts the uses of
// every thread, map and function that a row refers to. Takes the stores at construction; one thread
// only. Log: "SampleWriter".
#pragma once

#include <cstdint>

#include "output/ResolvedAddress.h"
#include "output/SampleInfo.h"
#include "output/SampleRowWriter.h"

namespace kestrel {
class JsomWriter;
}
struct ThreadInfo;
class MMapStore;
class RangedItem;
class SymbolTableStore;
class ThreadStore;

class SampleWriter {
 public:
  explicit SampleWriter(SampleRowWriter::Mode mode = SampleRowWriter::Mode::AtOnce);
  virtual ~SampleWriter() = default;

  // Opens the table in the writer's open object; its "data" array stays open for the rows.
  void writeHeader(kestrel::JsomWriter& writer) const;
  // Writes one row. Rows are numbered from 1.
  void writeSample(kestrel::JsomWriter& writer, const SampleInfo& sample) const;
  // Closes the table.
  void writeFooter(kestrel::JsomWriter& writer) const;

  // What `address` is in the thread's process: the function, else the map, else a map made up under
  // the name of the process. Counts the use. Never null.
  RangedItem* _getMemMap(ThreadInfo* thread, unsigned long long address) const;

 private:
  SampleRow::Place _placeOf(ThreadInfo* thread, uint64_t address) const;

  ThreadStore* threads_;
  MMapStore* maps_;
  SymbolTableStore* symbolTables_;
  mutable uint32_t sampleCount_ = 0;
  mutable AddressCache cache_;
  mutable ResolvedAddress uncached_;  // the answer that is not kept
  mutable SampleRowWriter rows_;
};
