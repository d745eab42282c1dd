#include "output/SampleWriter.h"

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/log/Logger.h"
#include "model/DocumentTable.h"
#include "model/MMapStore.h"
#include "model/ThreadStore.h"
#include "symbols/SymbolTableStore.h"

SampleWriter::SampleWriter(SampleRowWriter::Mode mode)
    : threads_(kestrel::Singleton<ThreadStore>::Instance()),
      maps_(kestrel::Singleton<MMapStore>::Instance()),
      symbolTables_(kestrel::Singleton<SymbolTableStore>::Instance()),
      rows_(mode, static_cast<int>(kestrel::Singleton<PerfSettings>::Instance()->timePrecision)) {
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
  for (const uint64_t address : sample.backtrace) {
    cache_.prefetch(thread->pid, address);
  }
  const SampleRow::Place place = _placeOf(thread, sample.ip);
  SampleRow& row = rows_.begin(writer, sample.backtrace.size());
  row.number = ++sampleCount_;
  row.cpu = sample.cpu;
  row.tid = sample.tid;
  row.time = sample.time;
  row.place = place;
  for (const uint64_t address : sample.backtrace) {
    rows_.addCaller(_placeOf(thread, address));
  }
  rows_.end();
}

void SampleWriter::writeFooter(kestrel::JsomWriter& writer) const {
  rows_.finish();
  closeDocumentTable(writer);
}

SampleRow::Place SampleWriter::_placeOf(ThreadInfo* thread, uint64_t address) const {
  return {address, _getMemMap(thread, address)->key};
}

RangedItem* SampleWriter::_getMemMap(ThreadInfo* thread, unsigned long long address) const {
  const uint32_t pid = thread->pid;
  const uint32_t generation = maps_->generation(pid);
  if (ResolvedAddress* const known = cache_.find(pid, address, generation)) {
    known->countUse();
    return known->item();
  }
  if (MMapInfo* const map = maps_->get(pid, address)) {
    if (!symbolTables_->hasSymbolTable(map)) {
      rows_.expectLogLine();
    }
    ResolvedAddress& found = map->sharesStart ? uncached_ : cache_.place(pid, address);
    found.set(pid, address, map, symbolTables_->getSymbolTable(map)->getFunction(address, map));
    found.generation = generation;
    found.countUse();
    return found.item();
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
  return uncached_.item();
}
