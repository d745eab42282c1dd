// Copies everything that arrives on one file into another file or an output stream, on the thread
// of a selector, until the end of data. What the target does not take is lost: give it a blocking
// file, and ask for the error once the tie is closed. One thread at a time; the target is written
// by the selector's thread from tie() to close().
#pragma once

#include <memory>
#include <ostream>

#include "kestrel/BlockProcessor.h"

namespace kestrel {

class PortableFile;
class PortableFileProcessor;

class FileTie {
 public:
  class LocalFileProcessor;
  class LocalStreamProcessor;

  FileTie();
  // Closes.
  virtual ~FileTie();
  FileTie(const FileTie&) = delete;
  FileTie& operator=(const FileTie&) = delete;

  // Starts to copy, after closing an existing tie. True: the source belongs to the tie, which
  // deletes it at its end; the target is borrowed until close(). False: nothing is copied and the
  // source stays the caller's; the reason has been logged.
  bool tie(PortableFile* source, PortableFile* target);
  bool tie(PortableFile* source, std::ostream* target);

  // What copies, for waiting until it has drained; owned by the tie until close(). Null when
  // nothing was started.
  PortableFileProcessor* getFileProcessor() const;

  // Stops copying, whatever has arrived by then, and waits for the selector's thread.
  void close();

  // Once closed, or when tie() was false: the errno of what kept bytes of the source from reaching
  // the target; 0 when the source was copied to its end. A stream may keep back bytes of its own,
  // for which it answers itself.
  int getError() const { return error_; }

 private:
  class LocalProcessor;

  bool _start(PortableFile* source);

  int error_ = 0;
  std::unique_ptr<LocalProcessor> localProcessor_;
  std::unique_ptr<PortableFileProcessor> fileProcessor_;
};

class FileTie::LocalProcessor : public BlockProcessor {
 public:
  // The errno of the first write that failed, or 0. Not while blocks are processed.
  int getError() const { return error_; }

 protected:
  // Called when a write has failed.
  void noteError();

 private:
  int error_ = 0;
};

// Writes each block to a file.
class FileTie::LocalFileProcessor : public LocalProcessor {
 public:
  explicit LocalFileProcessor(PortableFile* target) : target_(target) {}
  void processBuffer(const char* data, int length) override;

 private:
  PortableFile* const target_;  // borrowed
};

// Writes each block to an output stream.
class FileTie::LocalStreamProcessor : public LocalProcessor {
 public:
  explicit LocalStreamProcessor(std::ostream* target) : target_(target) {}
  void processBuffer(const char* data, int length) override;

 private:
  std::ostream* const target_;  // borrowed
};

}  // namespace kestrel
