#include "output/SampleWriter.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/json/DecimalText.h"
#include "kestrel/json/JsomWriter.h"
#include "kestrel/json/NumberText.h"
#include "kestrel/log/Logger.h"
#include "model/DocumentTable.h"
#include "model/MMapStore.h"
#include "model/ThreadStore.h"
#include "symbols/SymbolTableStore.h"

// A row that is collected and handed to the writer as one text: handing over every value costs most
// of a conversion. Only for rows that hold no forced line break.
class SampleWriter::Row {
 public:
  // The most bytes that a row with so many callers has.
  static int longestOf(std::size_t callers) {
    constexpr std::size_t MOST = INT_MAX / CALLER_BYTES - FIXED_BYTES;
    return FIXED_BYTES + static_cast<int>(std::min(callers, MOST)) * CALLER_BYTES;
  }

  Row(kestrel::JsomWriter& writer, std::vector<char>& buffer, std::size_t callers)
      : writer_(writer) {
    buffer.resize(std::max(buffer.size(), static_cast<std::size_t>(longestOf(callers))));
    begin_ = buffer.data();
    end_ = begin_;
  }

  void addFixedPart(uint32_t number, const SampleInfo& sample, const ResolvedAddress& place,
                    int timePrecision) {
    char* to = end_;
    *to++ = '[';
    to = _writeNumber(number, to);
    to = _writePlace(place, to);
    *to++ = ',';
    to += kestrel::formatTrimmed(sample.time, timePrecision, to, DOUBLE_BYTES);
    *to++ = ',';
    to = _writeNumber(sample.cpu, to);
    char* const tid = to;
    to = _writeNumber(sample.tid, to);  // "pidkey": a thread's key in "processes" is its tid
    to = std::copy(tid, to, to);        // "tid"
    *to++ = '[';
    callers_ = to;
    end_ = to;
  }

  void addCaller(const ResolvedAddress& place) {
    char* to = end_;
    if (to != callers_) {
      *to++ = ',';
    }
    *to++ = '[';
    to = _writePlace(place, to);
    *to++ = ']';
    end_ = to;
  }

  // Hands over what was collected so far. Whatever is logged next comes behind it, should both go
  // to the same place.
  void flush() {
    if (!isOpen_) {
      isOpen_ = true;
      writer_.startArray();
      _handOver(begin_ + 1, callers_ - 2);
      writer_.startArray();
    }
    if (end_ != callers_) {
      _handOver(callers_, end_);
    }
    end_ = callers_;
  }

  void finish() {
    if (isOpen_) {
      flush();
      writer_.endArray();
      writer_.endArray();
    } else {
      *end_++ = ']';
      *end_++ = ']';
      _handOver(begin_, end_);
    }
  }

 private:
  static constexpr int NUMBER_BYTES = kestrel::DECIMAL_BYTES;
  static constexpr int DOUBLE_BYTES = 256;                   // as the writer's
  static constexpr int CALLER_BYTES = 2 * NUMBER_BYTES + 4;  // brackets and commas included
  static constexpr int FIXED_BYTES = DOUBLE_BYTES + 6 * NUMBER_BYTES + 16;

  // Written without the members, which the compiler would store anew after every byte.
  static char* _writeNumber(uint64_t number, char* to) {
    to = kestrel::writeDecimal(number, to);
    *to++ = ',';
    return to;
  }
  static char* _writePlace(const ResolvedAddress& place, char* to) {
    if (place.length > 0) {
      std::memcpy(to, place.text, ResolvedAddress::TEXT_BYTES);  // of one size: no loop
      return to + place.length;
    }
    return kestrel::writeDecimal(place.item()->key, _writeNumber(place.address, to));
  }
  void _handOver(const char* begin, const char* end) {
    writer_.appendJsonValue(begin, static_cast<int>(end - begin));
  }

  kestrel::JsomWriter& writer_;
  char* begin_;
  char* end_;
  char* callers_ = nullptr;  // where the back trace's text begins
  bool isOpen_ = false;      // the fixed part is handed over
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
  if (writer.holdsOnLine(Row::longestOf(sample.backtrace.size()))) {
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

void SampleWriter::_writeRow(kestrel::JsomWriter& writer, const SampleInfo& sample,
                             ThreadInfo* thread) const {
  for (const uint64_t address : sample.backtrace) {
    cache_.prefetch(thread->pid, address);
  }
  Row row(writer, rowText_, sample.backtrace.size());
  row.addFixedPart(sampleCount_, sample, _resolve(thread, sample.ip, nullptr),
                   static_cast<int>(settings_->timePrecision));
  for (const uint64_t address : sample.backtrace) {
    row.addCaller(_resolve(thread, address, &row));
  }
  row.finish();
}

void SampleWriter::writeFooter(kestrel::JsomWriter& writer) const { closeDocumentTable(writer); }

RangedItem* SampleWriter::_getMemMap(ThreadInfo* thread, unsigned long long address) const {
  return _resolve(thread, address, nullptr).item();
}

ResolvedAddress& SampleWriter::_resolve(ThreadInfo* thread, uint64_t address, Row* row) const {
  const uint32_t pid = thread->pid;
  const uint32_t generation = maps_->generation(pid);
  if (ResolvedAddress* const known = cache_.find(pid, address, generation)) {
    known->countUse();
    return *known;
  }
  if (MMapInfo* const map = maps_->get(pid, address)) {
    if (row != nullptr && !symbolTables_->hasSymbolTable(map)) {
      row->flush();
    }
    ResolvedAddress& found = map->sharesStart ? uncached_ : cache_.place(pid, address);
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
