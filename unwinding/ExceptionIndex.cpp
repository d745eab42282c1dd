#include "unwinding/ExceptionIndex.h"

#include <bit>
#include <utility>

namespace unwinding {

namespace {

constexpr std::size_t ENTRY_SIZE = 8;  // where a function starts, and its instructions
constexpr std::uint32_t WORD = 4;
constexpr std::uint32_t CANNOT_UNWIND = 1;
constexpr std::uint32_t COMPACT = 0x80000000;

constexpr unsigned STACK_POINTER = 13;
constexpr unsigned LINK_REGISTER = 14;
constexpr unsigned PROGRAM_COUNTER = 15;

std::uint32_t wordAt(const ExceptionIndex::Table& table, std::size_t offset) {
  return static_cast<std::uint32_t>(ByteCursor(table.bytes, offset).takeUnsigned(WORD));
}

// A place 31 bits away from the word itself.
std::uint32_t placeAt(const ExceptionIndex::Table& table, std::size_t offset) {
  const std::uint32_t word = wordAt(table, offset);
  const std::uint32_t distance = (word & 0x7fffffff) | ((word & 0x40000000) << 1);
  return static_cast<std::uint32_t>(table.address + offset) + distance;
}

class ExceptionCode {
 public:
  ExceptionCode(const FrameRule& rule, const Registers& frame, Memory& memory)
      : rule_(rule),
        next_(rule.codeSkip),
        memory_(memory),
        step_{frame, false},
        stack_(static_cast<std::uint32_t>(frame.value(STACK_POINTER))) {}

  std::optional<ExceptionStep> run() {
    while (ok_ && !finished_ && next_ < rule_.codeSize) {
      _execute(_take());
    }
    if (!ok_) {
      return std::nullopt;
    }
    if (!pcRestored_) {
      ok_ = step_.caller.known(LINK_REGISTER);
      step_.caller.set(PROGRAM_COUNTER, step_.caller.value(LINK_REGISTER));
    }
    step_.caller.set(STACK_POINTER, stack_);
    return ok_ ? std::optional<ExceptionStep>(step_) : std::nullopt;
  }

 private:
  // Words are little-endian, their instructions run from the highest byte down.
  std::uint8_t _take() {
    if (next_ >= rule_.codeSize) {
      ok_ = false;
      return 0;
    }
    const std::size_t at = next_++;
    return rule_.code[at / WORD * WORD + (WORD - 1 - at % WORD)];
  }

  void _execute(std::uint8_t code) {
    if (code < 0x40) {
      stack_ += (code & 0x3fu) * WORD + WORD;
    } else if (code < 0x80) {
      stack_ -= (code & 0x3fu) * WORD + WORD;
    } else if (code < 0x90) {
      const unsigned mask = (code & 0x0fu) << 8 | _take();
      step_.outermost = mask == 0;  // "refuse to unwind"
      finished_ = mask == 0;
      _pop(mask << 4);
    } else if (code < 0xa0) {
      const unsigned number = code & 0x0fu;
      ok_ = number != STACK_POINTER && number != PROGRAM_COUNTER && step_.caller.known(number);
      stack_ = static_cast<std::uint32_t>(step_.caller.value(number));
    } else if (code < 0xb0) {
      const unsigned upTo = code & 0x07u;
      _pop(((0x10u << (upTo + 1)) - 0x10u) | ((code & 0x08u) != 0 ? 1u << LINK_REGISTER : 0));
    } else {
      _executeRare(code);
    }
  }

  void _executeRare(std::uint8_t code) {
    if (code == 0xb0) {
      finished_ = true;
    } else if (code == 0xb1) {
      const unsigned mask = _take();
      ok_ = ok_ && mask != 0 && mask < 0x10;
      _pop(mask);
    } else if (code == 0xb2) {
      _addLong();
    } else if (code == 0xb3) {
      stack_ += ((_take() & 0x0fu) + 1) * 8 + WORD;
    } else if (code == 0xb4) {
      stack_ += WORD;  // authentication code of the return address
    } else if (code >= 0xb8 && code <= 0xbf) {
      stack_ += ((code & 0x07u) + 1) * 8 + WORD;
    } else if (code == 0xc7) {
      stack_ += static_cast<unsigned>(std::popcount(_take())) * WORD;
    } else if (code == 0xc6 || code == 0xc8 || code == 0xc9) {
      stack_ += ((_take() & 0x0fu) + 1) * 8;
    } else if ((code >= 0xc0 && code <= 0xc5) || (code >= 0xd0 && code <= 0xd7)) {
      stack_ += ((code & 0x07u) + 1) * 8;
    } else {
      ok_ = false;  // spare
    }
  }

  void _addLong() {
    std::uint32_t value = 0;
    std::uint8_t byte = 0x80;
    for (unsigned shift = 0; ok_ && (byte & 0x80) != 0; shift += 7) {
      byte = _take();
      value |= shift < 32 ? (byte & 0x7fu) << shift : 0;
    }
    stack_ += 0x204 + value * WORD;
  }

  void _pop(unsigned mask) {
    std::uint32_t at = stack_;
    stack_ += static_cast<unsigned>(std::popcount(mask)) * WORD;
    for (unsigned left = mask; ok_ && left != 0; left &= left - 1) {
      const auto number = static_cast<unsigned>(std::countr_zero(left));
      const std::optional<std::uint64_t> value = memory_.read(at, WORD);
      at += WORD;
      if (value) {
        step_.caller.set(number, *value);
      } else {
        step_.caller.forget(number);
      }
      if (number == STACK_POINTER) {
        ok_ = value.has_value();
        stack_ = static_cast<std::uint32_t>(value.value_or(0));
      } else if (number == PROGRAM_COUNTER) {
        ok_ = value.has_value();
        pcRestored_ = true;
      }
    }
  }

  const FrameRule& rule_;
  std::size_t next_;
  Memory& memory_;
  ExceptionStep step_;
  std::uint32_t stack_;
  bool ok_ = true;
  bool finished_ = false;
  bool pcRestored_ = false;
};

}  // namespace

ExceptionIndex::ExceptionIndex(Table index, Table extra)
    : index_(std::move(index)), extra_(std::move(extra)) {}

std::uint64_t ExceptionIndex::_startOf(std::size_t entry) const {
  return placeAt(index_, entry * ENTRY_SIZE) & ~std::uint64_t{1};  // no Thumb bit
}

bool ExceptionIndex::find(std::uint64_t address, FrameRule& rule) const {
  std::size_t low = 0;
  std::size_t high = index_.bytes.size() / ENTRY_SIZE;
  while (low < high) {  // entries are in order; where they are not, the search still ends
    const std::size_t middle = low + (high - low) / 2;
    if (_startOf(middle) <= address) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  if (low == 0) {
    return false;
  }
  const std::size_t content = (low - 1) * ENTRY_SIZE + WORD;
  const std::uint32_t word = wordAt(index_, content);
  rule = FrameRule();
  if (word == CANNOT_UNWIND) {
    rule.kind = FrameRule::Kind::Outermost;
    return true;
  }
  return (word & COMPACT) != 0 ? _compact(index_, content, rule)
                               : _extra(placeAt(index_, content), rule);
}

bool ExceptionIndex::_compact(const Table& table, std::size_t offset, FrameRule& rule) const {
  const std::uint32_t word = wordAt(table, offset);
  const unsigned personality = word >> 24 & 0x0f;
  if (personality > 2) {
    return false;
  }
  // 0: three bytes; 1, 2: two bytes and the words that the byte before them counts.
  const std::size_t words = personality == 0 ? 0 : word >> 16 & 0xff;
  rule.codeSkip = personality == 0 ? 1 : 2;
  rule.codeSize = static_cast<std::uint16_t>((1 + words) * WORD);
  if (rule.codeSize > table.bytes.size() - offset) {
    return false;
  }
  rule.code = table.bytes.data() + offset;
  rule.kind = FrameRule::Kind::ExceptionIndex;
  return true;
}

bool ExceptionIndex::_extra(std::uint64_t address, FrameRule& rule) const {
  const std::uint64_t offset = address - extra_.address;
  if (address < extra_.address || extra_.bytes.size() < 2 * WORD ||
      offset > extra_.bytes.size() - 2 * WORD) {
    return false;
  }
  const auto at = static_cast<std::size_t>(offset);
  if ((wordAt(extra_, at) & COMPACT) != 0) {
    return _compact(extra_, at, rule);
  }
  // A personality routine of a language: the GNU ones all keep the instructions behind it.
  const std::size_t words = wordAt(extra_, at + WORD) >> 24;
  rule.codeSkip = 1;
  rule.codeSize = static_cast<std::uint16_t>((1 + words) * WORD);
  if (rule.codeSize > extra_.bytes.size() - at - WORD) {
    return false;
  }
  rule.code = extra_.bytes.data() + at + WORD;
  rule.kind = FrameRule::Kind::ExceptionIndex;
  return true;
}

std::optional<ExceptionStep> runExceptionCode(const FrameRule& rule, const Registers& frame,
                                              Memory& memory) {
  return ExceptionCode(rule, frame, memory).run();
}

}  // namespace unwinding
