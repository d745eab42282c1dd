// Rows of the "samples" table, and the plain way to write them: every value handed to the writer by
// itself.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "kestrel/json/JsomWriter.h"
#include "output/SampleRow.h"

// A row and its callers; the number that the row has of them does not count here.
struct PlainRow {
  SampleRow row;
  std::vector<SampleRow::Caller> callers{};
};

// Numbers of all lengths; the same for the same number.
inline PlainRow plainRow(uint32_t number, std::size_t callers) {
  constexpr uint64_t FACTOR = 0x9E3779B97F4A7C15;
  PlainRow plain;
  plain.row.number = number;
  plain.row.key = number % 1000;
  plain.row.sample.ip = FACTOR * number >> number % 61;
  plain.row.sample.time = static_cast<double>(number) / 64;
  plain.row.sample.cpu = number % 5;
  plain.row.sample.tid = static_cast<uint32_t>(FACTOR * number >> (32 + number % 29));
  for (std::size_t i = 0; i < callers; ++i) {
    const uint64_t mixed = FACTOR * (number + i);
    plain.callers.push_back({mixed >> i % 47, mixed >> 50});
  }
  return plain;
}

inline void writePlainly(kestrel::JsomWriter& writer, const PlainRow& plain, int timePrecision) {
  writer.startArray();
  writer.appendUnsignedInt(plain.row.number);
  writer.appendUnsignedLong(plain.row.sample.ip);
  writer.appendUnsignedLong(plain.row.key);
  writer.appendDouble(plain.row.sample.time, timePrecision);
  writer.appendUnsignedInt(plain.row.sample.cpu);
  writer.appendUnsignedInt(plain.row.sample.tid);
  writer.appendUnsignedInt(plain.row.sample.tid);
  writer.startArray();
  for (const SampleRow::Caller& caller : plain.callers) {
    writer.startArray();
    writer.appendUnsignedLong(caller.address);
    writer.appendUnsignedLong(caller.key);
    writer.endArray();
  }
  writer.endArray();
  writer.endArray();
}

// An array of these rows.
inline std::string plainText(const std::vector<PlainRow>& rows, int timePrecision,
                             bool whitespace = false) {
  std::ostringstream out;
  kestrel::JsomWriter writer(&out);
  writer.whitespace = whitespace;
  writer.startArray();
  for (const PlainRow& plain : rows) {
    writePlainly(writer, plain, timePrecision);
  }
  writer.endArray();
  return out.str();
}
