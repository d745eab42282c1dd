// The text of rows of the "samples" table. Hands each row to the writer as one text where no forced
// line break can fall inside it: handing over every value costs several times as much. One thread
// at a time.
#pragma once

#include <vector>

#include "output/SampleRow.h"

namespace kestrel {
class JsomWriter;
}

class SampleRowText {
 public:
  // `timePrecision` is the number of digits of the times.
  explicit SampleRowText(int timePrecision) : timePrecision_(timePrecision) {}

  // Writes the rows into the array that the writer has open.
  void write(kestrel::JsomWriter& writer, const SampleRowBatch& batch);

  // The same for one row, piece by piece: with the callers given, then each further one.
  void begin(kestrel::JsomWriter& writer, const SampleRow& row,
             const SampleRow::Place* callers) const;
  static void addCaller(kestrel::JsomWriter& writer, const SampleRow::Place& caller);
  static void end(kestrel::JsomWriter& writer);

 private:
  // The row's text; no longer than _longestOf() bytes.
  char* _format(const SampleRow& row, const SampleRow::Place* callers, char* to) const;

  int timePrecision_;
  std::vector<char> text_;  // one row, reused
};
