#include "unwinding/Unwinder.h"

#include <algorithm>

#include "unwinding/CallFrameTable.h"
#include "unwinding/ExceptionIndex.h"
#include "unwinding/Expression.h"

namespace unwinding {

namespace {

// Powers of two.
constexpr std::size_t FEWEST_CACHED_RULES = std::size_t{1} << 8;
constexpr std::size_t MOST_CACHED_RULES = std::size_t{1} << 14;
constexpr std::uint64_t LONGEST_GUESSED_FRAME = 0x4000;  // bytes
constexpr unsigned MOST_FILE_READS = 256;                // of a chain; honest ones need none
constexpr std::uint64_t THUMB_BIT = 1;
// Arm64: what is above the addresses of a process is the authentication code.
constexpr std::uint64_t ARM64_ADDRESS_MASK = (std::uint64_t{1} << 48) - 1;

// One of `slots`, a power of two.
std::size_t slotOf(FileId file, std::uint64_t offset, std::size_t slots) {
  const std::uint64_t mixed = (offset ^ (std::uint64_t{file} << 40)) * 0x9e3779b97f4a7c15u;
  return static_cast<std::size_t>(mixed >> 40) & (slots - 1);
}

}  // namespace

void Unwinder::SampleMemory::begin(const UserState& state) {
  stack_ = state.stack;
  stackStart_ = state.registers.value(traitsOf(state.machine).stackPointer);
  fileReads_ = 0;
  missedStack_ = false;
}

std::optional<std::uint64_t> Unwinder::SampleMemory::read(std::uint64_t address, unsigned size) {
  const std::uint64_t offset = address - stackStart_;
  if (address >= stackStart_ && offset <= stack_.size() && size <= stack_.size() - offset) {
    return ByteCursor(stack_, static_cast<std::size_t>(offset)).takeUnsigned(size);
  }
  const std::optional<std::uint64_t> value = _readFile(address, size);
  missedStack_ = missedStack_ || (!value && address >= stackStart_);
  return value;
}

std::optional<std::uint64_t> Unwinder::SampleMemory::_readFile(std::uint64_t address,
                                                               unsigned size) {
  const std::optional<Map> map = owner_.maps_->find(address);
  if (!map || map->file == NO_FILE || ++fileReads_ > MOST_FILE_READS || size > map->end - address) {
    return std::nullopt;
  }
  const FileFrames* const file = owner_._file(map->file);
  return file == nullptr ? std::nullopt : file->read(address - map->start + map->fileOffset, size);
}

Unwinder::Unwinder(FrameFiles& files)
    : files_(files), memory_(*this), traits_(traitsOf(machine_)), rules_(FEWEST_CACHED_RULES) {}

End Unwinder::unwind(const UserState& state, const MapLookup& maps, std::size_t mostFrames,
                     std::vector<std::uint64_t>& frames) {
  frames.clear();
  lastFile_ = NO_FILE;
  machine_ = state.machine;
  traits_ = traitsOf(machine_);
  maps_ = &maps;
  memory_.begin(state);
  Frame frame;
  frame.registers = state.registers;
  frame.pc = state.registers.value(traits_.pc);
  std::optional<Map> map;
  while (true) {
    const std::uint64_t address = frame.isReturnAddress ? frame.pc - 1 : frame.pc;
    if (!map || !map->holds(address)) {
      map = maps.find(address);
    }
    lastFile_ = map ? map->file : NO_FILE;
    const FileFrames* const file = lastFile_ == NO_FILE ? nullptr : _file(lastFile_);
    if (file == nullptr || file->machine() != machine_) {
      frames.push_back(address);
      return lastFile_ == NO_FILE ? End::UnknownModule : End::FileMissing;
    }
    const std::uint64_t offset = address - map->start + map->fileOffset;
    const FrameRule& rule = _rule(*file, lastFile_, offset, frame.isReturnAddress);
    frames.push_back(rule.signal ? frame.pc : address);
    if (rule.kind == FrameRule::Kind::Outermost) {
      return End::Complete;
    }
    if (frames.size() >= mostFrames) {
      return End::MostFrames;
    }
    frame.loadBias = address - (offset + rule.toAddress);
    if (const std::optional<End> end = _step(rule, frame)) {
      return *end;
    }
  }
}

const FileFrames* Unwinder::_file(FileId file) {
  const auto [place, isNew] = opened_.try_emplace(file, nullptr);
  if (isNew) {
    place->second = files_.get(file);
  }
  return place->second;
}

const FrameRule& Unwinder::_rule(const FileFrames& file, FileId id, std::uint64_t offset,
                                 bool isReturnAddress) {
  CachedRule* cached = &rules_[slotOf(id, offset, rules_.size())];
  if (cached->file == id && cached->offset == offset &&
      cached->isReturnAddress == isReturnAddress) {
    return cached->rule;
  }
  if (++foundRules_ > rules_.size() && rules_.size() < MOST_CACHED_RULES) {
    rules_ = std::vector<CachedRule>(rules_.size() * 4);  // they are soon there again
    foundRules_ = 0;
    cached = &rules_[slotOf(id, offset, rules_.size())];
  }
  file.find(offset, isReturnAddress, cached->rule);
  cached->file = id;
  cached->offset = offset;
  cached->isReturnAddress = isReturnAddress;
  return cached->rule;
}

std::optional<End> Unwinder::_step(const FrameRule& rule, Frame& frame) {
  const std::uint64_t pcBefore = frame.pc;
  const std::uint64_t stackBefore = frame.registers.value(traits_.stackPointer);
  frame.registers.set(traits_.pc, frame.pc);  // expressions ask for it
  std::optional<End> end;
  bool stepped = true;
  switch (rule.kind) {
    case FrameRule::Kind::CallFrame:
      stepped = _stepByRule(rule, frame);
      break;
    case FrameRule::Kind::SavedContext:
      stepped = _stepByContext(rule, frame);
      break;
    case FrameRule::Kind::ExceptionIndex:
      end = _stepByExceptionCode(rule, frame);
      break;
    default:
      end = _stepByGuess(frame);
      break;
  }
  if (!stepped) {
    end = memory_.missedStack() ? End::StackTooShort : End::Broken;
  }
  if (end) {
    return end;
  }
  if (machine_ == Machine::Arm) {
    frame.pc &= ~THUMB_BIT;
  }
  frame.isReturnAddress = !rule.signal;
  frame.innermost = rule.signal;
  if (frame.pc == 0) {
    return End::Complete;
  }
  if (frame.pc == pcBefore && frame.registers.value(traits_.stackPointer) == stackBefore) {
    return End::Broken;
  }
  return std::nullopt;
}

bool Unwinder::_stepByRule(const FrameRule& rule, Frame& frame) {
  const std::optional<std::uint64_t> cfa = _cfa(rule, frame);
  if (!cfa) {
    return false;
  }
  Registers caller = frame.registers;
  caller.set(traits_.stackPointer, *cfa);
  bool returnKnown = rule.returnRegister != traits_.pc;  // else only a rule tells
  for (unsigned i = 0; i < rule.count; ++i) {
    const RegisterRule& each = rule.registers[i];
    if (!_apply(rule, each, *cfa, frame, caller)) {
      caller.forget(each.number);
    }
    returnKnown = returnKnown || each.number == rule.returnRegister;
  }
  if (!returnKnown || !caller.known(rule.returnRegister)) {
    return false;
  }
  frame.registers = caller;
  frame.pc = caller.value(rule.returnRegister);
  // The code may be there although nothing says so: a hint instruction made it, or not.
  if (machine_ == Machine::Arm64 && (rule.signedReturn || frame.pc > ARM64_ADDRESS_MASK)) {
    frame.pc &= ARM64_ADDRESS_MASK;
  }
  return true;
}

bool Unwinder::_apply(const FrameRule& rule, const RegisterRule& each, std::uint64_t cfa,
                      const Frame& frame, Registers& caller) {
  const std::uint64_t atOffset =
      _truncated(cfa + static_cast<std::uint64_t>(std::int64_t{each.value}));
  std::optional<std::uint64_t> value;
  switch (each.kind) {
    case RegisterRule::Kind::Undefined:
      break;
    case RegisterRule::Kind::Offset:
      value = memory_.read(atOffset, traits_.wordSize);
      if (!value && each.number != traits_.pc &&
          atOffset < frame.registers.value(traits_.stackPointer)) {
        return true;  // in an epilogue, popped: below the stack, and back in its register
      }
      break;
    case RegisterRule::Kind::ValueOffset:
      value = atOffset;
      break;
    case RegisterRule::Kind::Register: {
      const auto other = static_cast<std::size_t>(each.value);
      if (frame.registers.known(other)) {
        value = frame.registers.value(other);
      }
      break;
    }
    case RegisterRule::Kind::Expression:
    case RegisterRule::Kind::ValueExpression:
      value = evaluate(rule.table->section(), static_cast<std::size_t>(each.value),
                       {machine_, frame.registers, memory_, frame.loadBias, cfa});
      if (value && each.kind == RegisterRule::Kind::Expression) {
        value = memory_.read(*value, traits_.wordSize);
      }
      break;
  }
  if (value) {
    caller.set(each.number, *value);
  }
  return value.has_value();
}

std::optional<std::uint64_t> Unwinder::_cfa(const FrameRule& rule, const Frame& frame) {
  if (rule.cfaIsExpression) {
    return evaluate(rule.table->section(), static_cast<std::size_t>(rule.cfaValue),
                    {machine_, frame.registers, memory_, frame.loadBias, std::nullopt});
  }
  if (!frame.registers.known(rule.cfaRegister)) {
    return std::nullopt;
  }
  return _truncated(frame.registers.value(rule.cfaRegister) +
                    static_cast<std::uint64_t>(std::int64_t{rule.cfaValue}));
}

bool Unwinder::_stepByContext(const FrameRule& rule, Frame& frame) {
  const std::uint64_t start = frame.registers.value(rule.cfaRegister) +
                              static_cast<std::uint64_t>(std::int64_t{rule.cfaValue});
  Registers caller;
  for (unsigned i = 0; i < rule.count; ++i) {
    const RegisterRule& each = rule.registers[i];
    const std::uint64_t place = start + static_cast<std::uint64_t>(std::int64_t{each.value});
    if (const auto value = memory_.read(_truncated(place), traits_.wordSize)) {
      caller.set(each.number, *value);
    }
  }
  if (!caller.known(traits_.pc) || !caller.known(traits_.stackPointer)) {
    return false;
  }
  frame.registers = caller;
  frame.pc = caller.value(traits_.pc);
  return true;
}

std::optional<End> Unwinder::_stepByExceptionCode(const FrameRule& rule, Frame& frame) {
  const std::optional<ExceptionStep> step = runExceptionCode(rule, frame.registers, memory_);
  if (!step) {
    return memory_.missedStack() ? End::StackTooShort : End::Broken;
  }
  if (step->outermost) {
    return End::Complete;
  }
  const std::uint64_t pc = step->caller.value(traits_.pc);
  const std::optional<Map> map = maps_->find(pc - 1);
  if ((!map || map->file == NO_FILE) && _stepByLinkRegister(frame)) {
    return std::nullopt;
  }
  frame.registers = step->caller;
  frame.pc = pc;
  return std::nullopt;
}

bool Unwinder::_stepByLinkRegister(Frame& frame) {
  if (!frame.innermost || !frame.registers.known(traits_.linkRegister)) {
    return false;
  }
  frame.pc = frame.registers.value(traits_.linkRegister);
  frame.registers.forget(traits_.linkRegister);
  return true;
}

std::optional<End> Unwinder::_stepByGuess(Frame& frame) {
  if (_stepByLinkRegister(frame)) {
    return std::nullopt;
  }
  if (machine_ == Machine::Arm) {
    return End::NoCallFrameInformation;  // its frame records have several forms
  }
  if (_stepByFramePointer(frame)) {
    return std::nullopt;
  }
  // Start code clears the frame pointer to mark the outermost frame.
  const bool cleared = frame.registers.known(traits_.framePointer) &&
                       frame.registers.value(traits_.framePointer) == 0;
  return cleared ? End::Complete : End::NoCallFrameInformation;
}

bool Unwinder::_stepByFramePointer(Frame& frame) {
  const std::uint64_t stack = frame.registers.value(traits_.stackPointer);
  const std::uint64_t record = frame.registers.value(traits_.framePointer);
  if (!frame.registers.known(traits_.framePointer) || record < stack ||
      record - stack > LONGEST_GUESSED_FRAME) {
    return false;
  }
  const std::optional<std::uint64_t> saved = memory_.read(record, traits_.wordSize);
  const std::optional<std::uint64_t> pc = memory_.read(record + traits_.wordSize, traits_.wordSize);
  if (!saved || !pc) {
    return false;
  }
  Registers caller;  // where the others are is not known
  caller.set(traits_.framePointer, *saved);
  caller.set(traits_.stackPointer, record + 2 * traits_.wordSize);
  frame.registers = caller;
  frame.pc = *pc;
  return true;
}

std::uint64_t Unwinder::_truncated(std::uint64_t value) const {
  return traits_.wordSize == 4 ? value & 0xffffffff : value;
}

}  // namespace unwinding
