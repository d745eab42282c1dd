#include "output/SampleRowText.h"

#include <algorithm>
#include <climits>
#include <iterator>

#include "kestrel/json/DecimalText.h"
#include "kestrel/json/JsomWriter.h"
#include "kestrel/json/NumberText.h"

namespace {

constexpr int NUMBER_BYTES = kestrel::DECIMAL_BYTES;
constexpr int DOUBLE_BYTES = 256;                   // as the writer's
constexpr int CALLER_BYTES = 2 * NUMBER_BYTES + 4;  // brackets and commas included
constexpr int FIXED_BYTES = DOUBLE_BYTES + 6 * NUMBER_BYTES + 16;

// The most bytes that a row with so many callers has.
int _longestOf(uint32_t callers) {
  constexpr uint32_t MOST = INT_MAX / CALLER_BYTES - FIXED_BYTES;
  return FIXED_BYTES + static_cast<int>(std::min(callers, MOST)) * CALLER_BYTES;
}

char* _writeNumber(uint64_t number, char* to) {
  to = kestrel::writeDecimal(number, to);
  *to++ = ',';
  return to;
}

char* _writePlace(const SampleRow::Place& place, char* to) {
  return kestrel::writeDecimal(place.key, _writeNumber(place.address, to));
}

}  // namespace

void SampleRowText::write(kestrel::JsomWriter& writer, const SampleRowBatch& batch) {
  const SampleRow::Place* callers = batch.callers();
  for (const SampleRow& row : batch.rows()) {
    const int longest = _longestOf(row.callers);
    if (writer.holdsOnLine(longest)) {
      text_.resize(std::max(text_.size(), static_cast<std::size_t>(longest)));
      const char* const end = _format(row, callers, text_.data());
      writer.appendJsonValue(text_.data(), static_cast<int>(end - text_.data()));
    } else {
      begin(writer, row, callers);
      end(writer);
    }
    callers += row.callers;
  }
}

char* SampleRowText::_format(const SampleRow& row, const SampleRow::Place* callers,
                             char* to) const {
  *to++ = '[';
  to = _writeNumber(row.number, to);
  to = _writePlace(row.place, to);
  *to++ = ',';
  to += kestrel::formatTrimmed(row.time, timePrecision_, to, DOUBLE_BYTES);
  *to++ = ',';
  to = _writeNumber(row.cpu, to);
  char* const tid = to;
  to = _writeNumber(row.tid, to);  // "pidkey": a thread's key in "processes" is its tid
  to = std::copy(tid, to, to);     // "tid"
  *to++ = '[';
  for (uint32_t i = 0; i < row.callers; ++i) {
    *to++ = '[';
    to = _writePlace(callers[i], to);
    *to++ = ']';
    *to++ = ',';
  }
  if (row.callers > 0) {
    --to;  // no comma behind the last one
  }
  *to++ = ']';
  *to++ = ']';
  return to;
}

// A forced line break may stand between any two of these values.
void SampleRowText::begin(kestrel::JsomWriter& writer, const SampleRow& row,
                          const SampleRow::Place* callers) const {
  writer.startArray();
  writer.appendUnsignedInt(row.number);
  writer.appendUnsignedLong(row.place.address);
  writer.appendUnsignedLong(row.place.key);
  writer.appendDouble(row.time, timePrecision_);
  writer.appendUnsignedInt(row.cpu);
  writer.appendUnsignedInt(row.tid);  // "pidkey": a thread's key in "processes" is its tid
  writer.appendUnsignedInt(row.tid);
  writer.startArray();
  for (uint32_t i = 0; i < row.callers; ++i) {
    addCaller(writer, callers[i]);
  }
}

void SampleRowText::addCaller(kestrel::JsomWriter& writer, const SampleRow::Place& caller) {
  writer.startArray();
  writer.appendUnsignedLong(caller.address);
  writer.appendUnsignedLong(caller.key);
  writer.endArray();
}

void SampleRowText::end(kestrel::JsomWriter& writer) {
  writer.endArray();
  writer.endArray();
}
