// What the tests of the selector share.
#pragma once

#include <atomic>
#include <memory>

#include <gtest/gtest.h>

#include "kestrel/exec/LinuxPipe.h"
#include "kestrel/exec/LinuxSelector.h"
#include "kestrel/exec/PortableSelector.h"

// Reads one byte for each call and counts.
class Recorder : public kestrel::PortableSelector::Listener {
 public:
  bool onCanRead(kestrel::PortableSelector* /*selector*/, kestrel::PortableFile* file) override {
    char byte = 0;
    const int count = file->read(&byte, 1);
    if (count == 1) {
      lastByte = byte;
      ++reads;
    }
    return keeps && (count != 0 || keepsAtEnd);
  }
  void onError(kestrel::PortableSelector* /*selector*/, kestrel::PortableFile* /*file*/,
               int error) override {
    lastError = error;
  }
  void onClose(kestrel::PortableSelector* /*selector*/, kestrel::PortableFile* /*file*/) override {
    ++closes;
  }

  std::atomic<bool> keeps{true};
  std::atomic<bool> keepsAtEnd{false};
  std::atomic<char> lastByte{0};
  std::atomic<int> reads{0};
  std::atomic<int> lastError{0};
  std::atomic<int> closes{0};
};

// A pipe whose reading end goes to a selector.
struct WatchedPipe {
  kestrel::LinuxPipe* reader = new kestrel::LinuxPipe();  // the selector's once it is registered
  std::unique_ptr<kestrel::LinuxPipe> writer{reader->openAnonymousPipe()};

  void write(char byte) const { EXPECT_EQ(writer->write(&byte, 1), 1); }
};

inline bool addPipe(kestrel::LinuxSelector& selector, const WatchedPipe& source,
                    Recorder& recorder) {
  return selector.addFile(source.reader, &recorder);
}
