// The selector over select(2). Its loop runs on a worker of the default thread group from
// construction until closeSelector(), a broken control pipe or an error of select(); then the
// selector is closed for good. Descriptors of FD_SETSIZE and above cannot be watched.
#pragma once

#include <atomic>
#include <memory>
#include <sys/select.h>
#include <vector>

#include "kestrel/exec/LinuxPipe.h"
#include "kestrel/exec/PortableSelector.h"
#include "kestrel/threads/Lock.h"
#include "kestrel/threads/Runnable.h"
#include "kestrel/threads/ThreadAnnotations.h"

namespace kestrel {

class LinuxSelectorExt : public PortableSelectorExt {};

class LinuxSelector final : public PortableSelector, public LinuxSelectorExt, public Runnable {
 public:
  LinuxSelector();
  // Closes the selector first; so not on its own thread.
  ~LinuxSelector() override;
  LinuxSelector(const LinuxSelector&) = delete;
  LinuxSelector& operator=(const LinuxSelector&) = delete;

  bool addFile(PortableFile* file, Listener* listener) override;
  void closeFile(PortableFile* file) override;
  void closeSelector() override;
  PortableSelectorExt* ext() override { return this; }
  int getError() const override { return error_; }
  void setWakeUpInterval(double seconds) override;

  // The loop; only the thread group calls it.
  void run() override;

 private:
  struct Entry {
    PortableFile* file;  // owned
    Listener* listener;  // borrowed
    bool active;         // false: the loop removes it
    int watchedFd;       // what the last read set holds for the file; -1 for nothing
  };
  // What the loop carries from one iteration to the next.
  struct Loop {
    bool rebuild = true;      // entries may have to be removed
    double usedInterval = 0;  // what timeOut was made from
    timeval timeOut = {};
    fd_set readSet;
  };

  bool _openControlPipe() KESTREL_REQUIRES(lock_);
  Entry* _find(const PortableFile* file) KESTREL_REQUIRES(lock_);

  bool _iterate(Loop& loop) KESTREL_REQUIRES(lock_);
  void _failUnwatchable(Loop& loop) KESTREL_REQUIRES(lock_);
  void _removeClosed() KESTREL_REQUIRES(lock_);
  int _buildReadSet(fd_set& readSet) KESTREL_REQUIRES(lock_);
  bool _survivesError(int error);
  void _notifyReadable(Loop& loop) KESTREL_REQUIRES(lock_);
  bool _obeyControl(Loop& loop) KESTREL_REQUIRES(lock_);
  void _close(const Entry& entry) KESTREL_REQUIRES(lock_);

  RequiredLock lock_;                                    // its condition: the loop has ended
  bool closed_ KESTREL_GUARDED_BY(lock_) = false;        // no loop runs
  double wakeUpInterval_ KESTREL_GUARDED_BY(lock_) = 0;  // seconds; 0: none
  std::vector<Entry> entries_ KESTREL_GUARDED_BY(lock_);
  std::unique_ptr<LinuxPipe> controlReadEnd_ KESTREL_GUARDED_BY(lock_);
  std::unique_ptr<LinuxPipe> controlWriteEnd_ KESTREL_GUARDED_BY(lock_);
  std::atomic<int> error_{0};  // see getError()
};

}  // namespace kestrel
