// Watches files from a thread of its own and tells a listener when one can be read.
#pragma once

namespace kestrel {

class PortableFile;

// What is special to a platform about a selector; PortableSelector::ext() gives it.
class PortableSelectorExt {
 public:
  virtual ~PortableSelectorExt() = default;
  // Lets the selector's thread wake up at least this often, in seconds; 0, a negative number or no
  // number: only when there is something to do. Taken up when the thread wakes next. Intervals
  // below a millisecond count as one, those above three years as three years.
  virtual void setWakeUpInterval(double seconds) = 0;
};

class PortableSelector {
 public:
  // Called on the selector's thread with its lock held: a listener calls no operation of the
  // selector, nor waits for a thread that does.
  class Listener {
   public:
    virtual ~Listener() = default;
    // The file has data or is at its end. True keeps it registered; after false onClose() follows.
    virtual bool onCanRead(PortableSelector* selector, PortableFile* file) = 0;
    // The file cannot be watched or read any more; onClose() follows.
    virtual void onError(PortableSelector* selector, PortableFile* file, int error) = 0;
    // The last call for this file, which is deleted afterwards.
    virtual void onClose(PortableSelector* selector, PortableFile* file) = 0;
  };

  virtual ~PortableSelector() = default;

  // Registers the file, makes it non-blocking and takes ownership of it: it is deleted after its
  // listener's onClose(). The listener is borrowed until then. False, and the file stays the
  // caller's, when the selector is closed, when either is null, when the file is closed or its
  // descriptor cannot be watched, and when the file is registered with another listener; registered
  // with the same one it is left as it is, and that is true. Any thread.
  virtual bool addFile(PortableFile* file, Listener* listener) = 0;
  // Ends the registration of a file; its listener's onClose() follows on the selector's thread. Any
  // thread.
  virtual void closeFile(PortableFile* file) = 0;
  // Ends the selector's thread and waits for it; every file is closed as by closeFile(). Later
  // calls do nothing. Not on the selector's thread.
  virtual void closeSelector() = 0;
  // Owned by the selector.
  virtual PortableSelectorExt* ext() = 0;
  // The errno of what closed the selector, or kept it from being opened; 0 when nothing of that
  // kind happened. Any thread, but a listener's onClose() only while it is called.
  virtual int getError() const { return 0; }
};

class PortableSelectorFactory {
 public:
  // A new selector whose thread runs, owned by the caller. One that got no thread or no pipe is
  // closed: addFile() is false. Null when there is no memory for it.
  static PortableSelector* createSelector();
};

}  // namespace kestrel
