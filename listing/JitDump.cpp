#include "listing/JitDump.h"

#include <algorithm>
#include <cstdint>
#include <unordered_map>

#include "listing/ByteCursor.h"

namespace listing {

namespace {

constexpr std::uint64_t MAGIC = 0x4A695444;
constexpr std::uint64_t SWAPPED_MAGIC = 0x4454694A;
constexpr std::size_t RECORD_HEADER_SIZE = 16;
constexpr std::uint64_t TICKS = 1;  // flag: times are of the processor's own counter
enum : std::uint64_t { CODE_LOAD = 0, CODE_MOVE = 1 };

class DumpReader {
 public:
  explicit DumpReader(bool isBigEndian) : isBigEndian_(isBigEndian) {}

  void read(std::uint64_t id, std::string_view body) {
    ByteCursor record(body, isBigEndian_);
    record.take(8 + 8);  // process and thread; address in the program's file
    if (id == CODE_MOVE) {
      record.number(8);  // where it was
    }
    const std::uint64_t address = record.number(8);
    const std::uint64_t size = record.number(8);
    const std::uint64_t index = record.number(8);
    if (id == CODE_LOAD) {
      names_[index] = record.text();
    }
    const auto name = names_.find(index);
    if (record.isOk() && name != names_.end() && !name->second.empty()) {
      const std::uint64_t room = UINT64_MAX - address;
      symbols_.push_back({address, address + std::min(std::max<std::uint64_t>(size, 1), room),
                          name->second, false, true, false, false});
    }
  }

  std::vector<Symbol>& symbols() { return symbols_; }

 private:
  bool isBigEndian_;
  std::unordered_map<std::uint64_t, std::string_view> names_;  // by index of the code
  std::vector<Symbol> symbols_;
};

}  // namespace

std::vector<Symbol> parseJitDump(std::string_view bytes, std::uint64_t lastTime) {
  const std::uint64_t magic = ByteCursor(bytes, true).number(4);
  if (magic != MAGIC && magic != SWAPPED_MAGIC) {
    return {};
  }
  const bool isBigEndian = magic == MAGIC;
  ByteCursor dump(bytes, isBigEndian);
  dump.number(8);  // magic and version
  const std::uint64_t headerSize = dump.number(4);
  dump.take(4 + 4 + 4 + 8);  // machine, padding, process, time
  const bool hasTicks = (dump.number(8) & TICKS) != 0;
  ByteCursor records(bytes.substr(std::min<std::size_t>(headerSize, bytes.size())), isBigEndian);
  DumpReader reader(isBigEndian);
  while (records.left() >= RECORD_HEADER_SIZE) {
    const std::uint64_t id = records.number(4);
    const std::uint64_t size = records.number(4);
    const std::uint64_t time = records.number(8);
    if (size < RECORD_HEADER_SIZE) {
      break;
    }
    const std::string_view body = records.take(size - RECORD_HEADER_SIZE);
    const bool isTooLate = time > lastTime && !hasTicks;
    if (records.isOk() && !isTooLate && (id == CODE_LOAD || id == CODE_MOVE)) {
      reader.read(id, body);
    }
  }
  return std::move(reader.symbols());
}

}  // namespace listing
