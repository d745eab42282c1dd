// The selector over select(2). Its loop runs on a worker of the default thread group from
// construction until closeSelector(), a broken control pipe or an error of select(); then the
// selector is closed for good. Descriptors of FD_SETSIZE and above cannot be watched.
#pragma once

#include <cstddef>
#include <memory>
#include <sys/select.h>
#include <vector>

#include "kestrel/LinuxPipe.h"
#include "kestrel/Lock.h"
#include "kestrel/PortableSelector.h"
#include "kestrel/Runnable.h"
#include "kestrel/ThreadAnnotations.h"

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
  void setWakeUpInterval(double seconds) override;

  // The loop; only the thread group calls it.
  void run() override;

  // The files that are registered.
  std::size_t getFileCountForTest();
  // How often select() has returned.
  unsigned getWakeUpCountForTest();
  // The write end of the control pipe.
  int getControlFdForTest();

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

  bool _openControlPipe() REQUIRES(lock_);
  Entry* _find(const PortableFile* file) REQUIRES(lock_);

  bool _iterate(Loop& loop) REQUIRES(lock_);
  void _failUnwatchable(Loop& loop) REQUIRES(lock_);
  void _removeClosed() REQUIRES(lock_);
  int _buildReadSet(fd_set& readSet) REQUIRES(lock_);
  bool _survivesError(int error) const;
  void _notifyReadable(Loop& loop) REQUIRES(lock_);
  bool _obeyControl(Loop& loop) REQUIRES(lock_);
  void _close(const Entry& entry) REQUIRES(lock_);

  Lock lock_;                                    // its condition: the loop has ended
  bool closed_ GUARDED_BY(lock_) = false;        // no loop runs
  double wakeUpInterval_ GUARDED_BY(lock_) = 0;  // seconds; 0: none
  std::vector<Entry> entries_ GUARDED_BY(lock_);
  std::unique_ptr<LinuxPipe> controlReadEnd_ GUARDED_BY(lock_);
  std::unique_ptr<LinuxPipe> controlWriteEnd_ GUARDED_BY(lock_);
  unsigned wakeUpCount_ GUARDED_BY(lock_) = 0;
};

}  // namespace kestrel
