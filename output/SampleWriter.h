// Writes the "samples" table, a row at a time while the recording is read, and counts the uses of
// every thread, map and function that a row refers to. Takes the stores at construction; one thread
// only. Log: "SampleWriter".
#pragma once

#include <cstdint>
#include <vector>

#include "output/ResolvedAddress.h"
#include "output/SampleInfo.h"

namespace kestrel {
class JsomWriter;
}
struct PerfSettings;
struct ThreadInfo;
class MMapStore;
class RangedItem;
class SymbolTableStore;
class ThreadStore;

class SampleWriter {
 public:
  SampleWriter();
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
  class Row;

  // As _getMemMap(). Flushes the row in hand, if any, before a symbol table is made, which is
  // logged. Valid until the next call.
  ResolvedAddress& _resolve(ThreadInfo* thread, uint64_t address, Row* row) const;
  void _writeValues(kestrel::JsomWriter& writer, const SampleInfo& sample,
                    ThreadInfo* thread) const;
  void _writeRow(kestrel::JsomWriter& writer, const SampleInfo& sample, ThreadInfo* thread) const;

  PerfSettings* settings_;
  ThreadStore* threads_;
  MMapStore* maps_;
  SymbolTableStore* symbolTables_;
  mutable uint32_t sampleCount_ = 0;
  mutable AddressCache cache_;
  mutable ResolvedAddress uncached_;   // the answer that is not kept
  mutable std::vector<char> rowText_;  // one row, reused
};
