// How the samples and trailers of one event are laid out, worked out once from its attribute.
// Source: the kernel's kernel/events/core.c, perf_output_sample() and
// perf_event__output_id_sample().
#pragma once

#include <cstdint>
#include <optional>

#include "recordings/Attribute.h"
#include "recordings/FieldReader.h"
#include "recordings/RecordStream.h"

namespace recordings {

// What a sample holds; views point into its record.
struct Sample {
  std::uint64_t ip = 0;
  std::uint32_t pid = 0;
  std::uint32_t tid = 0;
  std::uint64_t time = 0;  // nanoseconds on the recording's clock
  std::uint32_t cpu = 0;
  std::uint16_t misc = 0;

  // The call chain: 64-bit words in the recording's byte order, marks included.
  Bytes chain;
  ByteOrder order = ByteOrder::NATIVE;
  std::uint64_t chainWord(std::size_t index) const {
    return numberAt<std::uint64_t>(chain.data() + index * 8, order);
  }
  std::size_t chainLength() const { return chain.size() / 8; }

  // --call-graph dwarf: user registers (abi 0: none), in the order of the bits of
  // Attribute::sampleRegsUser, and the stack from the stack pointer upwards.
  std::uint64_t userAbi = 0;
  Bytes userRegisters;
  Bytes userStack;

  // --call-graph lbr: entries of from, to, flags; the newest first.
  Bytes branches;
};

// Who and when, behind records other than samples; what it does not hold is 0.
struct Trailer {
  std::uint32_t pid = 0;
  std::uint32_t tid = 0;
  std::uint64_t time = 0;
};

class SampleLayout {
 public:
  SampleLayout(const Attribute& attribute, ByteOrder order);

  const Attribute& attribute() const { return attribute_; }
  bool hasTime() const { return hasTime_; }
  bool hasCpu() const { return (attribute_.sampleType & abi::SAMPLE_CPU) != 0; }
  bool hasChain() const { return (attribute_.sampleType & abi::SAMPLE_CALLCHAIN) != 0; }
  // Whether the caller's part of the chain is to be found from registers and stack.
  bool hasStackDump() const;
  // Whether samples and trailers say which event they are of, and whether at the same place as
  // those of `other`.
  bool hasId() const {
    return (attribute_.sampleType & (abi::SAMPLE_IDENTIFIER | abi::SAMPLE_ID)) != 0;
  }

  // False if the record is too short for what it claims to hold: it holds nothing then.
  bool decode(const Record& record, Sample& sample) const;
  // 0 if there is none.
  std::uint64_t timeOfSample(const Record& record) const;
  std::uint64_t timeOfOther(const Record& record) const { return trailerOf(record).time; }
  // The id of the event; nothing if the record does not say.
  std::optional<std::uint64_t> idOfSample(const Record& record) const;
  // Of a record of the kernel that is no sample.
  Trailer trailerOf(const Record& record) const;
  // The bytes of such a record that are its own, without the trailer.
  Bytes bodyOf(const Record& record) const;

 private:
  static constexpr std::size_t NOWHERE = ~std::size_t{0};

  bool _skipReadValues(FieldReader& fields) const;
  bool _takeBranches(FieldReader& fields, Sample& sample) const;
  bool _takeRegistersAndStack(FieldReader& fields, Sample& sample) const;

  Attribute attribute_;
  ByteOrder order_;
  bool hasTime_;
  // Offsets of the fields of fixed place in the record's body.
  std::size_t ipAt_ = NOWHERE;
  std::size_t threadAt_ = NOWHERE;
  std::size_t timeAt_ = NOWHERE;
  std::size_t idAt_ = NOWHERE;
  std::size_t cpuAt_ = NOWHERE;
  std::size_t fixedSize_ = 0;
  // From the record's end backwards.
  std::size_t trailerSize_ = 0;
};

}  // namespace recordings
