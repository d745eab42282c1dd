// Every thread and process of the recording, by tid: filled from COMM records in pass 1 and by
// look-ups of unknown threads. Reached through kestrel::Singleton<ThreadStore>::Instance(). One
// thread only.
#pragma once

#include <map>

#include "model/RecentlyUsed.h"
#include "model/ThreadInfo.h"

namespace kestrel {
class JsomWriter;
}
namespace perfevents {
class PerfEventDataComm;
}

class ThreadStore {
 public:
  // Holds the kernel's and the init process's entries from the start.
  ThreadStore();

  // A known thread takes the new name and keeps its pid. A " (deleted)" in a name and what follows
  // is cut off.
  void add(const perfevents::PerfEventDataComm& record);
  // The entry of `tid`, whatever its pid; made, nameless, when there is none. Never null, valid as
  // long as the store.
  ThreadInfo* getThread(unsigned pid, unsigned tid);
  ThreadInfo* getProcess(unsigned pid) { return getThread(pid, pid); }
  // Writes the "processes" member into the writer's open object; only entries in use unless
  // `writeAll`.
  void writeLegacyJsonObject(kestrel::JsomWriter& writer, bool writeAll) const;

 private:
  ThreadInfo& _entryOf(unsigned pid, unsigned tid);

  std::map<uint32_t, ThreadInfo> threads_;  // key: tid
  RecentlyUsed<ThreadInfo> recentThreads_;
};
