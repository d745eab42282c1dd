#include "output/SampleWriter.h"

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/json/JsomWriter.h"
#include "kestrel/log/Logger.h"
#include "model/DocumentTable.h"
#include "model/MMapStore.h"
#include "model/ThreadStore.h"
#include "symbols/SymbolTableStore.h"

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
  const RangedItem* const item = _getMemMap(thread, sample.ip);
  writer.startArray();
  writer.appendUnsignedInt(++sampleCount_);
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

void SampleWriter::writeFooter(kestrel::JsomWriter& writer) const { closeDocumentTable(writer); }

RangedItem* SampleWriter::_getMemMap(ThreadInfo* thread, unsigned long long address) const {
  if (MMapInfo* const map = maps_->get(thread->pid, address)) {
    ++map->refCount;
    FunctionInfo* const function = symbolTables_->getSymbolTable(map)->getFunction(address, map);
    if (function == nullptr) {
      return map;
    }
    ++function->refCount;
    return function;
  }
  const ThreadInfo* owner = thread;
  if (thread->pid != thread->tid) {
    ThreadInfo* const process = threads_->getProcess(thread->pid);
    ++process->refCount;
    owner = process;
  }
  MMapInfo* const fake = maps_->getFake(owner->pid, address, owner->name);
  ++fake->refCount;
  return fake;
}
