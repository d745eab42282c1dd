// The second pass over the recording: each sample inside the time window becomes a row of the
// "samples" table, in file order. Log: "PerfInputRunnerPass2".
#pragma once

#include <fstream>

#include "output/SampleInfo.h"
#include "output/SampleWriter.h"
#include "perfevents/PerfEventDataListener.h"

namespace kestrel {
class JsomWriter;
class TimeConverter;
}  // namespace kestrel

class PerfInputRunnerPass2 : public perfevents::PerfEventDataListener {
 public:
  // Reads the whole recording from the start of the stream and writes the table into the writer's
  // open object. A recording that cannot be read, or ends early, leaves the rows written until
  // then; the table is complete in every case. Throws what the reader throws besides
  // std::ios_base::failure. Borrows converter and writer.
  PerfInputRunnerPass2(std::ifstream* input, kestrel::TimeConverter* converter,
                       kestrel::JsomWriter* writer,
                       SampleWriter::Mode mode = SampleWriter::Mode::AtOnce);

  void onEventData(const perfevents::PerfEventData& record) override;
  void onClose() override;

 private:
  SampleInfo sample_;  // reused for every sample
  SampleWriter sampleWriter_;
  kestrel::TimeConverter* converter_;
  kestrel::JsomWriter* writer_;
  bool tableClosed_ = false;
};
