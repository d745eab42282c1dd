#include "recordings/SampleLayout.h"

#include <algorithm>
#include <bit>

#include "recordings/Abi.h"

namespace recordings {

SampleLayout::SampleLayout(const Attribute& attribute, ByteOrder order)
    : attribute_(attribute),
      order_(order),
      hasTime_((attribute.sampleType & abi::SAMPLE_TIME) != 0) {
  const struct {
    std::uint64_t bit;
    std::size_t* at;
  } fixed[] = {
      {abi::SAMPLE_IDENTIFIER, &idAt_}, {abi::SAMPLE_IP, &ipAt_},    {abi::SAMPLE_TID, &threadAt_},
      {abi::SAMPLE_TIME, &timeAt_},     {abi::SAMPLE_ADDR, nullptr}, {abi::SAMPLE_ID, &idAt_},
      {abi::SAMPLE_STREAM_ID, nullptr}, {abi::SAMPLE_CPU, &cpuAt_},  {abi::SAMPLE_PERIOD, nullptr},
  };
  for (const auto& field : fixed) {
    if ((attribute.sampleType & field.bit) == 0) {
      continue;
    }
    if (field.at != nullptr && *field.at == NOWHERE) {
      *field.at = fixedSize_;
    }
    fixedSize_ += 8;
  }
  if (attribute.has(abi::FLAG_SAMPLE_ID_ALL)) {
    constexpr std::uint64_t PARTS = abi::SAMPLE_TID | abi::SAMPLE_TIME | abi::SAMPLE_ID |
                                    abi::SAMPLE_STREAM_ID | abi::SAMPLE_CPU |
                                    abi::SAMPLE_IDENTIFIER;
    trailerSize_ = 8 * static_cast<std::size_t>(std::popcount(attribute.sampleType & PARTS));
  }
}

bool SampleLayout::hasStackDump() const {
  constexpr std::uint64_t BOTH = abi::SAMPLE_REGS_USER | abi::SAMPLE_STACK_USER;
  return (attribute_.sampleType & BOTH) == BOTH;
}

std::uint64_t SampleLayout::timeOfSample(const Record& record) const {
  const Bytes body = record.body();
  return hasTime_ && body.size() >= fixedSize_
             ? numberAt<std::uint64_t>(body.data() + timeAt_, order_)
             : 0;
}

std::optional<std::uint64_t> SampleLayout::idOfSample(const Record& record) const {
  const Bytes body = record.body();
  if (idAt_ == NOWHERE || body.size() < idAt_ + 8) {
    return std::nullopt;
  }
  return numberAt<std::uint64_t>(body.data() + idAt_, order_);
}

bool SampleLayout::decode(const Record& record, Sample& sample) const {
  sample = Sample();
  sample.misc = record.misc;
  sample.order = order_;
  FieldReader fields(record.body(), order_);
  const Bytes fixed = fields.takeBytes(fixedSize_);
  if (!fields.ok()) {
    return false;
  }
  const unsigned char* const at = fixed.data();
  if (ipAt_ != NOWHERE) {
    sample.ip = numberAt<std::uint64_t>(at + ipAt_, order_);
  }
  if (threadAt_ != NOWHERE) {
    sample.pid = numberAt<std::uint32_t>(at + threadAt_, order_);
    sample.tid = numberAt<std::uint32_t>(at + threadAt_ + 4, order_);
  }
  if (timeAt_ != NOWHERE) {
    sample.time = numberAt<std::uint64_t>(at + timeAt_, order_);
  }
  if (cpuAt_ != NOWHERE) {
    sample.cpu = numberAt<std::uint32_t>(at + cpuAt_, order_);
  }
  const std::uint64_t type = attribute_.sampleType;
  if ((type & abi::SAMPLE_READ) != 0 && !_skipReadValues(fields)) {
    return false;
  }
  if ((type & abi::SAMPLE_CALLCHAIN) != 0) {
    const std::uint64_t length = fields.take<std::uint64_t>();
    if (length > fields.left() / 8) {
      return false;
    }
    sample.chain = fields.takeBytes(length * 8);
  }
  constexpr std::uint64_t BEHIND = abi::SAMPLE_BRANCH_STACK | abi::SAMPLE_REGS_USER;
  if ((type & BEHIND) == 0) {
    return fields.ok();
  }
  if ((type & abi::SAMPLE_RAW) != 0) {
    fields.skip(fields.take<std::uint32_t>());
  }
  if ((type & abi::SAMPLE_BRANCH_STACK) != 0 && !_takeBranches(fields, sample)) {
    return false;
  }
  return _takeRegistersAndStack(fields, sample);
}

bool SampleLayout::_skipReadValues(FieldReader& fields) const {
  const std::uint64_t format = attribute_.readFormat;
  const auto words = [format](std::uint64_t bits) {
    return static_cast<std::uint64_t>(std::popcount(format & bits));
  };
  std::uint64_t count = words(abi::FORMAT_ENABLED | abi::FORMAT_RUNNING);
  const std::uint64_t each = 1 + words(abi::FORMAT_ID | abi::FORMAT_LOST);
  if ((format & abi::FORMAT_GROUP) != 0) {
    const std::uint64_t members = fields.take<std::uint64_t>();
    if (members > fields.left() / 8) {
      return false;
    }
    count += members * each;
  } else {
    count += each;
  }
  fields.skip(count * 8);
  return fields.ok();
}

bool SampleLayout::_takeBranches(FieldReader& fields, Sample& sample) const {
  const std::uint64_t count = fields.take<std::uint64_t>();
  if (count > 0 && (attribute_.branchSampleType & abi::BRANCH_HW_INDEX) != 0) {
    fields.skip(8);
  }
  if (count > fields.left() / abi::BRANCH_ENTRY_SIZE) {
    return false;
  }
  sample.branches = fields.takeBytes(count * abi::BRANCH_ENTRY_SIZE);
  if ((attribute_.branchSampleType & abi::BRANCH_COUNTERS) != 0) {
    fields.skip(count * 8);
  }
  return fields.ok();
}

bool SampleLayout::_takeRegistersAndStack(FieldReader& fields, Sample& sample) const {
  if ((attribute_.sampleType & abi::SAMPLE_REGS_USER) != 0) {
    sample.userAbi = fields.take<std::uint64_t>();
    if (sample.userAbi != 0) {
      const auto registers = static_cast<std::uint64_t>(std::popcount(attribute_.sampleRegsUser));
      sample.userRegisters = fields.takeBytes(registers * 8);
    }
  }
  if ((attribute_.sampleType & abi::SAMPLE_STACK_USER) != 0) {
    const std::uint64_t size = fields.take<std::uint64_t>();
    if (size > 0) {
      const Bytes stack = fields.takeBytes(size);
      const std::uint64_t valid = fields.take<std::uint64_t>();
      if (!fields.ok()) {
        return false;
      }
      sample.userStack =
          stack.first(static_cast<std::size_t>(std::min<std::uint64_t>(valid, stack.size())));
    }
  }
  return fields.ok();
}

Bytes SampleLayout::bodyOf(const Record& record) const {
  const Bytes body = record.body();
  return body.size() < trailerSize_ ? body : body.first(body.size() - trailerSize_);
}

Trailer SampleLayout::trailerOf(const Record& record) const {
  Trailer trailer;
  const Bytes body = record.body();
  if (trailerSize_ == 0 || body.size() < trailerSize_) {
    return trailer;
  }
  FieldReader fields(body.last(trailerSize_), order_);
  if ((attribute_.sampleType & abi::SAMPLE_TID) != 0) {
    trailer.pid = fields.take<std::uint32_t>();
    trailer.tid = fields.take<std::uint32_t>();
  }
  if (hasTime_) {
    trailer.time = fields.take<std::uint64_t>();
  }
  return trailer;
}

}  // namespace recordings
