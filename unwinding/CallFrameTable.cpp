#include "unwinding/CallFrameTable.h"

#include <algorithm>
#include <array>
#include <limits>

#include "unwinding/CallFrameProgram.h"

namespace unwinding {

namespace {

constexpr std::uint64_t LENGTH_64_BIT = 0xffffffff;
constexpr std::uint64_t COMMON_ID_32 = 0xffffffff;  // of .debug_frame; .eh_frame has 0
constexpr std::uint64_t COMMON_ID_64 = ~std::uint64_t{0};
constexpr std::size_t LONGEST_AUGMENTATION = 16;

// Pointer encodings (DW_EH_PE_*).
constexpr std::uint8_t FORMAT_MASK = 0x0f;
constexpr std::uint8_t BASE_MASK = 0x70;
constexpr std::uint8_t RELATIVE_TO_ITSELF = 0x10;
constexpr std::uint8_t INDIRECT = 0x80;
constexpr std::uint8_t OMITTED = 0xff;

std::uint64_t takeFormat(ByteCursor& in, std::uint8_t format, unsigned wordSize) {
  switch (format) {
    case 0x00:
      return in.takeUnsigned(wordSize);
    case 0x01:
      return in.takeUleb();
    case 0x02:
      return in.takeUnsigned(2);
    case 0x03:
      return in.takeUnsigned(4);
    case 0x04:
    case 0x0c:
      return in.takeUnsigned(8);
    case 0x08:
      return static_cast<std::uint64_t>(in.takeSigned(wordSize));
    case 0x09:
      return static_cast<std::uint64_t>(in.takeSleb());
    case 0x0a:
      return static_cast<std::uint64_t>(in.takeSigned(2));
    case 0x0b:
      return static_cast<std::uint64_t>(in.takeSigned(4));
    default:
      in.skip(std::numeric_limits<std::uint64_t>::max());  // unknown: the cursor is not ok
      return 0;
  }
}

}  // namespace

CallFrameTable::CallFrameTable(Machine machine, Form form, std::vector<unsigned char> section,
                               std::uint64_t address, const IsCode& isCode)
    : machine_(machine),
      form_(form),
      wordSize_(traitsOf(machine).wordSize),
      section_(std::move(section)),
      address_(address) {
  if (section_.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    section_.clear();  // rules hold offsets in 32 bits
  }
  _index(isCode);
}

void CallFrameTable::_index(const IsCode& isCode) {
  std::array<Common, 16> recent;  // entries mostly follow what they have in common
  Header header;
  for (std::size_t offset = _skipZeroWords(0); _readHeader(offset, header);
       offset = _skipZeroWords(header.end)) {
    if (header.common) {
      continue;
    }
    Common& common = recent[header.commonOffset / 4 % recent.size()];
    if (!common.valid || common.offset != header.commonOffset) {
      common = _readCommon(header.commonOffset);
    }
    Function function;
    if (!common.valid || !_readFunction(header, common, function) || function.size == 0 ||
        !isCode(function.start)) {
      continue;
    }
    const std::uint64_t longest = std::numeric_limits<std::uint32_t>::max();
    index_.push_back({function.start, static_cast<std::uint32_t>(std::min(function.size, longest)),
                      static_cast<std::uint32_t>(offset)});
  }
  const auto earlier = [](const Entry& a, const Entry& b) { return a.start < b.start; };
  if (!std::is_sorted(index_.begin(), index_.end(), earlier)) {
    std::stable_sort(index_.begin(), index_.end(), earlier);
  }
  index_.shrink_to_fit();
}

std::vector<std::uint64_t> CallFrameTable::starts() const {
  std::vector<std::uint64_t> all;
  for (const Entry& entry : index_) {
    all.push_back(entry.start);
  }
  return all;
}

bool CallFrameTable::find(std::uint64_t address, FrameRule& rule) const {
  const auto after =
      std::upper_bound(index_.begin(), index_.end(), address,
                       [](std::uint64_t value, const Entry& entry) { return value < entry.start; });
  if (after == index_.begin() || address - std::prev(after)->start >= std::prev(after)->size) {
    return false;
  }
  Header header;
  Function function;
  if (!_readHeader(std::prev(after)->offset, header) || header.common) {
    return false;
  }
  const Common common = _readCommon(header.commonOffset);
  if (!common.valid || !_readFunction(header, common, function)) {
    return false;
  }
  CallFrameProgram program(
      machine_, common.codeAlignment, common.dataAlignment,
      [this, &common](ByteCursor& in) { return _takePointer(in, common.pointerEncoding); });
  if (!program.runCommon(section_, common.instructions) ||
      !program.run(section_, function.instructions, function.start, address)) {
    return false;
  }
  program.compile(common.returnRegister, rule);
  rule.signal = common.signal;
  rule.table = this;
  return rule.kind != FrameRule::Kind::None;
}

// Linkers leave them between and behind the entries.
std::size_t CallFrameTable::_skipZeroWords(std::size_t offset) const {
  ByteCursor in(section_, offset);
  while (in.takeUnsigned(4) == 0 && in.ok()) {
    offset = in.offset();
  }
  return offset;
}

bool CallFrameTable::_readHeader(std::size_t offset, Header& header) const {
  ByteCursor in(section_, offset);
  std::uint64_t length = in.takeUnsigned(4);
  const unsigned wordSize = length == LENGTH_64_BIT ? 8 : 4;
  if (wordSize == 8) {
    length = in.takeUnsigned(8);
  }
  if (!in.ok() || length > in.left()) {
    return false;
  }
  const std::size_t idAt = in.offset();
  header.end = idAt + static_cast<std::size_t>(length);
  const std::uint64_t id = in.takeUnsigned(wordSize);
  header.body = in.offset();
  if (header.body > header.end) {
    header.body = header.end;  // too short for anything: an entry of its own that says nothing
    header.common = true;
    return true;
  }
  if (form_ == Form::EhFrame) {
    header.common = id == 0;
    header.commonOffset = idAt - id;
  } else {
    header.common = id == (wordSize == 8 ? COMMON_ID_64 : COMMON_ID_32);
    header.commonOffset = id;
  }
  return true;
}

CallFrameTable::Common CallFrameTable::_readCommon(std::uint64_t offset) const {
  Common common;
  common.offset = offset;
  Header header;
  if (offset >= section_.size() || !_readHeader(static_cast<std::size_t>(offset), header) ||
      !header.common) {
    return common;
  }
  ByteCursor in(Bytes(section_).first(header.end), header.body);
  const std::uint8_t version = in.takeByte();
  const std::string_view letters = in.takeString(LONGEST_AUGMENTATION);
  if (version != 1 && version != 3 && version != 4) {
    return common;
  }
  if (version == 4) {
    const std::uint8_t addressSize = in.takeByte();
    const std::uint8_t segmentSize = in.takeByte();
    if (addressSize != wordSize_ || segmentSize != 0) {
      return common;
    }
  }
  common.codeAlignment = in.takeUleb();
  common.dataAlignment = in.takeSleb();
  const std::uint64_t returnRegister = version == 1 ? in.takeByte() : in.takeUleb();
  if (!_readAugmentation(letters, in, common) || !in.ok() ||
      returnRegister >= traitsOf(machine_).registers) {
    return common;
  }
  common.returnRegister = static_cast<std::uint8_t>(returnRegister);
  common.instructions = in.takeBytes(in.left());
  common.valid = true;
  return common;
}

bool CallFrameTable::_readAugmentation(std::string_view letters, ByteCursor& in,
                                       Common& common) const {
  if (letters.empty()) {
    return true;
  }
  if (letters.front() != 'z') {
    return false;  // nothing says where the instructions begin
  }
  common.sized = true;
  ByteCursor data(in.takeBytes(in.takeUleb()));
  for (const char letter : letters.substr(1)) {
    if (letter == 'R') {
      common.pointerEncoding = data.takeByte();
    } else if (letter == 'P') {
      const std::uint8_t encoding = data.takeByte();
      takeFormat(data, encoding & FORMAT_MASK, wordSize_);
    } else if (letter == 'L') {
      data.takeByte();
    } else if (letter == 'S') {
      common.signal = true;
    } else if (letter != 'B' && letter != 'G') {  // Arm64: which key signs, tagged memory
      break;
    }
  }
  return data.ok();
}

bool CallFrameTable::_readFunction(const Header& header, const Common& common,
                                   Function& function) const {
  ByteCursor in(Bytes(section_).first(header.end), header.body);
  function.start = _takePointer(in, common.pointerEncoding);
  function.size = takeFormat(in, common.pointerEncoding & FORMAT_MASK, wordSize_);
  if (common.sized) {
    in.skip(in.takeUleb());
  }
  function.instructions = in.takeBytes(in.left());
  return in.ok();
}

std::uint64_t CallFrameTable::_takePointer(ByteCursor& in, std::uint8_t encoding) const {
  const std::uint64_t at = address_ + in.offset();
  if (encoding == OMITTED || (encoding & INDIRECT) != 0) {
    in.skip(std::numeric_limits<std::uint64_t>::max());
    return 0;
  }
  std::uint64_t value = takeFormat(in, encoding & FORMAT_MASK, wordSize_);
  if ((encoding & BASE_MASK) == RELATIVE_TO_ITSELF) {
    value += at;
  } else if ((encoding & BASE_MASK) != 0) {
    in.skip(std::numeric_limits<std::uint64_t>::max());  // to text, data, function: not in use
  }
  return wordSize_ == 4 ? value & 0xffffffff : value;
}

}  // namespace unwinding
