#include "output/SampleWriter.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/json/JsomWriter.h"
#include "kestrel/json/NumberText.h"
#include "kestrel/log/Logger.h"
#include "model/DocumentTable.h"
#include "model/MMapStore.h"
#include "model/ThreadStore.h"
#include "symbols/SymbolTableStore.h"

// Collects a row's text in a buffer that is large enough for it.
class SampleWriter::RowText {
 public:
  // The most bytes that a row with so many callers has.
  static int longestOf(std::size_t callers) {
    constexpr std::size_t MOST = INT_MAX / ADDRESS_BYTES - FIXED_BYTES;
    return FIXED_BYTES + static_cast<int>(std::min(callers, MOST)) * ADDRESS_BYTES;
  }

  RowText(std::vector<char>& buffer, std::size_t callers) {
    buffer.resize(std::max(buffer.size(), static_cast<std::size_t>(longestOf(callers))));
    begin_ = buffer.data();
    end_ = begin_;
  }

  void add(char byte) { *end_++ = byte; }
  void addNumber(uint64_t number) { end_ = std::to_chars(end_, end_ + NUMBER_BYTES, number).ptr; }
  void addDouble(double value, int precision) {
    end_ += kestrel::formatTrimmed(value, precision, end_, DOUBLE_BYTES);
  }
  void addAddress(const ResolvedAddress& place) {
    if (place.length > 0) {
      std::memcpy(end_, place.text, ResolvedAddress::TEXT_BYTES);  // of one size: no loop
      end_ += place.length;
      return;
    }
    addNumber(place.address);
    add(',');
    addNumber(place.item()->key);
  }

  const char* text() const { return begin_; }
  int length() const { return static_cast<int>(end_ - begin_); }

 private:
  static constexpr int NUMBER_BYTES = 20;
  static constexpr int DOUBLE_BYTES = 256;                    // as the writer's
  static constexpr int ADDRESS_BYTES = 2 * NUMBER_BYTES + 4;  // brackets and commas included
  static constexpr int FIXED_BYTES = DOUBLE_BYTES + 6 * NUMBER_BYTES + 16;

  char* begin_;
  char* end_;
};

SampleWriter::SampleWriter()
    : settings_(kestrel::Singleton<PerfSettings>::Instance()),
      threads_(kestrel::Singleton<ThreadStore>::Instance()),
      maps_(kestrel::Singleton<MMapStore>::Instance()),
      symbolTables_(kestrel::Singleton<SymbolTableStore>::Instance()) {
  kestrel::Logger::getLogger("SampleWriter");
}

void SampleWriter::writeHeader(kestrel::JsomWriter& writer) const {
  openDocumentTable(writer, "samples",
                    {{"key", "key or reference for this sample"},
                     {"ip", "Location of sample, program counter"},
                     {"mapkey", "reference to map entry"},
                     {"time", "time stamp of the sample"},
                     {"cpu", "which core the sample was taken on"},
                     {"pidkey", "reference to the process element"},
                     {"tid", "tid for this sample"},
                     {"bt.ip", "backtrace program counter"},
                     {"bt.mapkey", "backtrace map key"}});
}

void SampleWriter::writeSample(kestrel::JsomWriter& writer, const SampleInfo& sample) const {
  ThreadInfo* const thread = threads_->getThread(sample.pid, sample.tid);
  ++thread->refCount;
  ++sampleCount_;
  if (writer.holdsOnLine(RowText::longestOf(sample.backtrace.size()))) {
    _writeRow(writer, sample, thread);
  } else {
    _writeValues(writer, sample, thread);
  }
}

// A forced line break may stand between any two of these values.
void SampleWriter::_writeValues(kestrel::JsomWriter& writer, const SampleInfo& sample,
                                ThreadInfo* thread) const {
  const RangedItem* const item = _getMemMap(thread, sample.ip);
  writer.startArray();
  writer.appendUnsignedInt(sampleCount_);
  writer.appendUnsignedLong(sample.ip);
  writer.appendUnsignedLong(item->key);
  writer.appendDouble(sample.time, static_cast<int>(settings_->timePrecision));
  writer.appendUnsignedInt(sample.cpu);
  writer.appendUnsignedInt(sample.tid);  // "pidkey": a thread's key in "processes" is its tid
  writer.appendUnsignedInt(sample.tid);
  writer.startArray();
  for (const uint64_t address : sample.backtrace) {
    const RangedItem* const caller = _getMemMap(thread, address);
    writer.startArray();
    writer.appendUnsignedLong(address);
    writer.appendUnsignedLong(caller->key);
    writer.endArray();
  }
  writer.endArray();
  writer.endArray();
}

// The same bytes as one text. Handing every value to the writer costs most of a conversion.
void SampleWriter::_writeRow(kestrel::JsomWriter& writer, const SampleInfo& sample,
                             ThreadInfo* thread) const {
  RowText row(rowText_, sample.backtrace.size());
  row.add('[');
  row.addNumber(sampleCount_);
  row.add(',');
  row.addAddress(_resolve(thread, sample.ip));
  row.add(',');
  row.addDouble(sample.time, static_cast<int>(settings_->timePrecision));
  row.add(',');
  row.addNumber(sample.cpu);
  row.add(',');
  row.addNumber(sample.tid);
  row.add(',');
  row.addNumber(sample.tid);
  row.add(',');
  row.add('[');
  bool isFirst = true;
  for (const uint64_t address : sample.backtrace) {
    if (!isFirst) {
      row.add(',');
    }
    isFirst = false;
    row.add('[');
    row.addAddress(_resolve(thread, address));
    row.add(']');
  }
  row.add(']');
  row.add(']');
  writer.appendJsonValue(row.text(), row.length());
}

void SampleWriter::writeFooter(kestrel::JsomWriter& writer) const { closeDocumentTable(writer); }

RangedItem* SampleWriter::_getMemMap(ThreadInfo* thread, unsigned long long address) const {
  return _resolve(thread, address).item();
}

ResolvedAddress& SampleWriter::_resolve(ThreadInfo* thread, uint64_t address) const {
  const uint32_t pid = thread->pid;
  const uint32_t generation = maps_->generation(pid);
  if (ResolvedAddress* const known = cache_.find(pid, address, generation)) {
    known->countUse();
    return *known;
  }
  if (MMapInfo* const map = maps_->get(pid, address)) {
    ResolvedAddress& found = cache_.place(pid, address);
    found.set(pid, address, map, symbolTables_->getSymbolTable(map)->getFunction(address, map));
    found.generation = generation;
    found.countUse();
    return found;
  }
  const ThreadInfo* owner = thread;
  if (pid != thread->tid) {
    ThreadInfo* const process = threads_->getProcess(pid);
    ++process->refCount;
    owner = process;
  }
  // Not kept: only the first visit to a page counts a use of its owner, and an address that the
  // made-up map does not hold makes another.
  uncached_.set(pid, address, maps_->getFake(owner->pid, address, owner->name), nullptr);
  uncached_.countUse();
  return uncached_;
}
