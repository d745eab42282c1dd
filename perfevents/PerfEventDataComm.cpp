#include "perfevents/PerfEventDataComm.h"

#include <algorithm>
#include <array>

#include "kestrel/log/Logger.h"
#include "perfevents/PerfAbi.h"
#include "perfevents/RecordCursor.h"

namespace perfevents {

namespace {

kestrel::Logger& _log() {
  static kestrel::Logger* const logger = kestrel::Logger::getLogger("PerfEventDataComm");
  return *logger;
}

// A table, so that locale and the signedness of char have no say.
constexpr std::array<bool, 256> PRINTABLE = [] {
  std::array<bool, 256> table{};
  for (std::size_t c = 0x20; c <= 0x7E; ++c) {
    table[c] = true;
  }
  return table;
}();

}  // namespace

bool isIgnore(char c) {
  const bool printable = PRINTABLE[static_cast<unsigned char>(c)];
  _log().debugf(printable ? "good" : "bad");
  return !printable;
}

PerfEventDataComm::PerfEventDataComm(const PerfEventAttribute& attribute)
    : PerfEventData(attribute, "PerfEventDataComm", abi::COMM_MINIMUM_SIZE) {}

bool PerfEventDataComm::parseEventData(const kestrel::ByteBufferViewport& body) {
  RecordCursor in(body);
  pid_ = in.take<uint32_t>();
  tid_ = in.take<uint32_t>();
  comm_ = in.takeString();
  std::erase_if(comm_, isIgnore);
  return true;
}

}  // namespace perfevents
