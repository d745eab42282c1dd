#include "model/ThreadStore.h"

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/json/JsomWriter.h"
#include "model/DeletedSuffix.h"
#include "model/DocumentTable.h"
#include "perfevents/PerfEventDataComm.h"

ThreadStore::ThreadStore() {
  const PerfSettings* const settings = kestrel::Singleton<PerfSettings>::Instance();
  _entryOf(settings->kernelPid, settings->kernelPid).name = settings->kernelProcessName;
  _entryOf(settings->initPid, settings->initPid).name = settings->initProcessName;
}

ThreadInfo& ThreadStore::_entryOf(unsigned pid, unsigned tid) {
  if (ThreadInfo* const recent = recentThreads_.find(tid)) {
    return *recent;
  }
  const auto [entry, isNew] = threads_.try_emplace(tid);
  ThreadInfo& thread = entry->second;
  if (isNew) {
    thread.pid = pid;
    thread.tid = tid;
  }
  recentThreads_.remember(tid, &thread);
  return thread;
}

void ThreadStore::add(const perfevents::PerfEventDataComm& record) {
  ThreadInfo& thread = _entryOf(record.pid(), record.tid());
  thread.name = record.comm();
  cutDeletedSuffix(thread.name);
}

ThreadInfo* ThreadStore::getThread(unsigned pid, unsigned tid) { return &_entryOf(pid, tid); }

void ThreadStore::writeLegacyJsonObject(kestrel::JsomWriter& writer, bool writeAll) const {
  openDocumentTable(
      writer, "processes",
      {{"key", "db key for this process element used in other structs as a reference"},
       {"pid", "The process id associated with this name"},
       {"tid", "The thread id"},
       {"name", "Name of the process with the pid and tid"}});
  for (const auto& [tid, thread] : threads_) {
    if (!writeAll && thread.refCount == 0) {
      continue;
    }
    writer.startArray();
    writer.appendUnsignedInt(thread.tid);  // the row's key
    writer.appendUnsignedInt(thread.pid);
    writer.appendUnsignedInt(thread.tid);
    writer.appendString(thread.name, false);
    writer.endArray();
  }
  closeDocumentTable(writer);
}
