// Reads a file from the thread of a selector of its own and pushes what arrives into a block
// processor, up to the end of data or an error. The block processor is called on that thread, and
// must not wait for this object or destroy it.
#pragma once

#include <atomic>
#include <cerrno>
#include <memory>

#include "kestrel/exec/PortableSelector.h"
#include "kestrel/threads/Lock.h"
#include "kestrel/threads/ThreadAnnotations.h"

namespace kestrel {

class BlockProcessor;
class PortableFile;

class PortableFileProcessor : public PortableSelector::Listener {
 public:
  // Starts to read, in blocks of up to `bufferSize` bytes (0 counts as 1). Takes ownership of the
  // file when isRegistered() is true afterwards; otherwise a warning has been logged, nothing runs
  // and the file stays the caller's. The block processor is borrowed until close().
  PortableFileProcessor(PortableFile* file, BlockProcessor* processor, unsigned bufferSize);
  // Closes.
  ~PortableFileProcessor() override;
  PortableFileProcessor(const PortableFileProcessor&) = delete;
  PortableFileProcessor& operator=(const PortableFileProcessor&) = delete;

  // Whether the constructor could start to read the file; stays so after its end.
  bool isRegistered() const { return registered_; }

  // Waits for at most `milliseconds` until the block processor has had its processEOF(). Whether it
  // has; true at once when nothing was ever registered.
  bool waitTilDone(unsigned milliseconds);
  // The errno of what kept the file from being read to its end: ECANCELED while it goes on, 0 once
  // the end of data has been read.
  int getError() const;
  // Stops reading and waits for the selector's thread; a file not yet at its end is given up, and
  // the block processor gets its processEOF(). Later calls do nothing.
  void close();

  // How often the file is read each time it has data, 1 unless set; 0 leaves the data where they
  // are. Any thread.
  void setReadsPerReadiness(unsigned reads) { readsPerReadiness_ = reads; }

  bool onCanRead(PortableSelector* selector, PortableFile* file) override;
  void onError(PortableSelector* selector, PortableFile* file, int error) override;
  void onClose(PortableSelector* selector, PortableFile* file) override;

 private:
  struct FreeBuffer {
    void operator()(char* buffer) const;
  };

  bool _start(PortableFile* file);
  void _setDone(bool done);
  void _setError(int error);

  std::atomic<unsigned> readsPerReadiness_{1};
  BlockProcessor* const processor_;  // borrowed, may be null
  const unsigned bufferSize_;
  std::unique_ptr<char, FreeBuffer> buffer_;  // raw; used by the selector's thread
  bool registered_ = false;

  mutable RequiredLock lock_;  // its condition: done
  std::unique_ptr<PortableSelector> selector_ KESTREL_GUARDED_BY(lock_);
  bool done_ KESTREL_GUARDED_BY(lock_) = true;
  int error_ KESTREL_GUARDED_BY(lock_) = ECANCELED;  // see getError()
};

}  // namespace kestrel
