#include "output/SampleRow.h"

#include <algorithm>

#include "kestrel/json/DecimalText.h"
#include "kestrel/json/JsomWriter.h"
#include "kestrel/json/NumberText.h"
#include "model/DocumentTable.h"

namespace {

constexpr std::size_t NUMBER_BYTES = kestrel::DECIMAL_BYTES + 1;  // with a comma
constexpr std::size_t TIME_BYTES = 256;                           // as in the writer

}  // namespace

void SampleRow::openTable(kestrel::JsomWriter& writer) {
  openDocumentTable(writer, "samples",
                    {{"key", "key or reference for this sample"},
                     {"ip", "Location of sample, program counter"},
                     {"mapkey", "reference to map entry"},
                     {"time", "time stamp of the sample"},
                     {"cpu", "which core the sample was taken on"},
                     {"pidkey", "reference to the process element"},
                     {"tid", "tid for this sample"},
                     {"bt.ip", "backtrace program counter"},
                     {"bt.mapkey", "backtrace map key"}});
}

void SampleRowText::startRow(const SampleRow& row) {
  length_ = 0;
  _makeRoom(6 * NUMBER_BYTES + TIME_BYTES + 3);
  _add('[');
  _addNumber(row.number);
  _addNumber(row.sample.ip);
  _addNumber(row.key);
  length_ += static_cast<std::size_t>(kestrel::formatTrimmed(
      row.sample.time, timePrecision_, text_.data() + length_, static_cast<int>(TIME_BYTES)));
  _add(',');
  _addNumber(row.sample.cpu);
  _addNumber(row.sample.tid);  // "pidkey": a thread's key in "processes" is its tid
  _addNumber(row.sample.tid);
  _add('[');
}

void SampleRowText::addCaller(const SampleRow::Caller& caller) {
  _makeRoom(2 * NUMBER_BYTES + 3);
  if (length_ == 0 || text_[length_ - 1] != '[') {
    _add(',');
  }
  _add('[');
  _addNumber(caller.address);
  _addNumber(caller.key);
  text_[length_ - 1] = ']';  // instead of the comma
}

void SampleRowText::endRow(kestrel::JsomWriter& writer) {
  _makeRoom(2);
  _add(']');
  _add(']');
  const bool isWhole = text_.front() == '[';
  if (isWhole) {
    writer.appendNumberArray(text_.data(), static_cast<int>(length_));
  } else {
    writer.appendArrayPiece(text_.data(), static_cast<int>(length_));
  }
  length_ = 0;
}

void SampleRowText::writeBeginning(kestrel::JsomWriter& writer) {
  writer.appendArrayPiece(text_.data(), static_cast<int>(length_));
  length_ = 0;
}

void SampleRowText::_makeRoom(std::size_t bytes) {
  if (text_.size() - length_ < bytes) {
    text_.resize(std::max(length_ + bytes, 2 * text_.size()));
  }
}

void SampleRowText::_addNumber(uint64_t number) {
  char* const begin = text_.data();
  length_ = static_cast<std::size_t>(kestrel::writeDecimal(number, begin + length_) - begin);
  _add(',');
}
