// The first pass over the recording: fills the thread store from COMM and the memory map store from
// MMAP records, so that the second pass knows them all: they may follow the samples that they
// explain. Log: "PerfInputRunnerPass1".
#pragma once

#include <fstream>

#include "perfevents/PerfEventDataListener.h"

namespace kestrel {
class JsomWriter;
class TimeConverter;
}  // namespace kestrel

class PerfInputRunnerPass1 : public perfevents::PerfEventDataListener {
 public:
  // Reads the whole recording from the start of the stream. A recording that cannot be read, or
  // ends early, leaves what was gathered until then (the reader has logged why). Throws what the
  // reader throws besides std::ios_base::failure. Borrows its arguments for the call.
  PerfInputRunnerPass1(std::ifstream* input, kestrel::TimeConverter* converter,
                       kestrel::JsomWriter* writer);

  void onEventData(const perfevents::PerfEventData& record) override;
  void onClose() override {}
};
