// The "samples" table: its columns, and a row of it before and after it is text. No other place
// knows the columns and their order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "output/SampleInfo.h"

namespace kestrel {
class JsomWriter;
}

struct SampleRow {
  struct Caller {
    uint64_t address = 0;
    uint64_t key = 0;  // of the function or map that the address refers to
  };

  // Opens the table in the writer's open object; its "data" array stays open for the rows.
  static void openTable(kestrel::JsomWriter& writer);

  SampleFacts sample;
  uint64_t key = 0;      // of the function or map that the sample's ip refers to
  uint32_t number = 0;   // the row's own key, from 1
  uint32_t callers = 0;  // how many there are; they stand elsewhere
};

// A row on its way into the writer's open array, as one text, which costs a fraction of the time of
// its values one by one. Reused for every row.
class SampleRowText {
 public:
  // `timePrecision` is the number of digits of the times.
  explicit SampleRowText(int timePrecision) : timePrecision_(timePrecision) {}

  // All columns but the callers. Drops what is left of a row that was never ended.
  void startRow(const SampleRow& row);
  void addCaller(const SampleRow::Caller& caller);
  void endRow(kestrel::JsomWriter& writer);
  // Writes what there is of the row already; nothing between two rows.
  void writeBeginning(kestrel::JsomWriter& writer);

 private:
  void _makeRoom(std::size_t bytes);
  void _add(char byte) { text_[length_++] = byte; }
  void _addNumber(uint64_t number);

  int timePrecision_;
  std::string text_;        // room, of which length_ bytes are used
  std::size_t length_ = 0;  // 0: nothing, or nothing since writeBeginning()
};
