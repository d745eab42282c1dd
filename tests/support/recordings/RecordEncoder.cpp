#include "tests/support/recordings/RecordEncoder.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace made {

namespace {

constexpr uint32_t TYPE_MMAP = 1;
constexpr uint32_t TYPE_COMM = 3;
constexpr uint32_t TYPE_EXIT = 4;
constexpr uint32_t TYPE_FORK = 7;
constexpr uint32_t TYPE_SAMPLE = 9;
constexpr uint32_t TYPE_MMAP2 = 10;
constexpr uint32_t FIRST_USER_TYPE = 64;
constexpr uint32_t TYPE_FINISHED_ROUND = 68;

constexpr uint16_t MISC_MMAP_DATA = 1 << 13;
constexpr uint16_t MISC_COMM_EXEC = 1 << 13;
constexpr uint16_t MISC_MMAP_BUILD_ID = 1 << 14;

constexpr uint64_t FLAG_MMAP = 1 << 8;
constexpr uint64_t FLAG_COMM = 1 << 9;
constexpr uint64_t FLAG_FREQ = 1 << 10;
constexpr uint64_t FLAG_TASK = 1 << 13;
constexpr uint64_t FLAG_SAMPLE_ID_ALL = 1 << 18;
constexpr uint64_t FLAG_MMAP2 = 1 << 23;
constexpr uint64_t FLAG_COMM_EXEC = 1 << 24;
constexpr uint64_t FLAG_USE_CLOCKID = 1 << 25;
constexpr uint64_t FLAG_BUILD_ID = uint64_t{1} << 34;

constexpr uint64_t BRANCH_HW_INDEX = 1 << 17;
constexpr uint64_t BRANCH_COUNTERS = 1 << 19;

constexpr std::size_t BUILD_ID_BYTES = 20;
constexpr std::size_t RECORD_HEADER_BYTES = 8;

template <typename... Visitors>
struct Overloaded : Visitors... {
  using Visitors::operator()...;
};
template <typename... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

bool has(uint64_t word, uint64_t bit) { return (word & bit) != 0; }

// How large a structure has to be to describe this event.
std::size_t neededAttribute(const Event& event) {
  std::size_t needed = 64;
  if (event.branchSampleType != 0) {
    needed = 80;
  }
  if (event.regsUser != 0 || event.stackUser != 0 || event.clockid != 0) {
    needed = 96;
  }
  return event.regsIntr != 0 ? 104 : needed;
}

std::size_t readWords(uint64_t format) {
  const auto count = [&](uint64_t bit) { return has(format, bit) ? 1u : 0u; };
  const std::size_t times = count(ReadBit::TOTAL_TIME_ENABLED) + count(ReadBit::TOTAL_TIME_RUNNING);
  // The value, or a group's number of members, which are then none.
  return 1 + times + (has(format, ReadBit::GROUP) ? 0 : count(ReadBit::ID) + count(ReadBit::LOST));
}

void appendRegisters(Fields& body, const Registers& registers) {
  body.u64(registers.abi);
  if (registers.abi != 0) {
    body.u64s(registers.values);
  }
}

void appendBranches(Fields& body, const Event& event, const Sample& sample) {
  body.u64(sample.branches.size());
  if (has(event.branchSampleType, BRANCH_HW_INDEX) && sample.branchIndex) {
    body.u64(*sample.branchIndex);
  }
  for (const Branch& branch : sample.branches) {
    body.u64(branch.from).u64(branch.to).branchFlags(branch.flags);
  }
  if (has(event.branchSampleType, BRANCH_COUNTERS)) {
    body.u64s(sample.branchCounters);
  }
}

void appendStack(Fields& body, const Sample& sample) {
  body.u64(sample.stack.size());
  if (!sample.stack.empty()) {
    body.bytes(sample.stack).u64(sample.stackUsed.value_or(sample.stack.size()));
  }
}

}  // namespace

RecordEncoder::RecordEncoder(const Recording& recording, const Encoding& encoding)
    : recording_(recording), encoding_(encoding) {
  if (recording.events.size() > 1 && encoding.identification == Identification::NONE) {
    throw std::invalid_argument("several events need ids");
  }
  const std::size_t size = encoding.hasAttributeSize ? encoding.attributeSize : 64;
  for (const Event& event : recording.events) {
    if (neededAttribute(event) > size) {
      throw std::invalid_argument("the attribute is too short for the event " + event.name);
    }
  }
}

std::string RecordEncoder::bytes(const Record& record) const {
  return std::visit(
      Overloaded{
          [&](const Map& map) { return _map(map); },
          [&](const Comm& comm) {
            Fields body;
            body.u32(comm.pid).u32(comm.tid).text(comm.name);
            return _withTrailer(TYPE_COMM, comm.isExec ? MISC_COMM_EXEC : 0, body,
                                {comm.pid, comm.tid, comm.time, comm.cpu});
          },
          [&](const Fork& fork) { return _task(TYPE_FORK, fork); },
          [&](const Exit& exit) { return _task(TYPE_EXIT, exit); },
          [&](const Sample& sample) {
            return plainBytes(TYPE_SAMPLE, static_cast<uint16_t>(sample.mode) | sample.moreMisc,
                              sampleBody(sample));
          },
          [&](const Other& other) { return _other(other); },
          [&](const FinishedRound&) {
            return encoding_.hasRounds ? plainBytes(TYPE_FINISHED_ROUND, 0, {}) : std::string();
          },
      },
      record);
}

std::string RecordEncoder::plainBytes(uint32_t type, uint16_t misc, const Fields& body) const {
  const std::size_t size = RECORD_HEADER_BYTES + body.size();
  if (size > 0xffff) {
    throw std::length_error("a record of " + std::to_string(size) + " bytes");
  }
  Fields record;
  record.u32(type).u16(misc).u16(static_cast<uint16_t>(size)).append(body);
  return record.in(encoding_.order);
}

std::string RecordEncoder::attribute(const Event& event) const {
  const std::size_t size = encoding_.attributeSize;
  Fields fields;
  fields.u32(event.type).u32(encoding_.hasAttributeSize ? static_cast<uint32_t>(size) : 0);
  fields.u64(event.config).u64(event.period);
  fields.u64(_sampleType(event)).u64(event.readFormat).bitFlags(_attributeFlags(event));
  fields.zeros(4 + 4 + 8);  // wakeup_events, bp_type, bp_addr: here ends the structure of 64 bytes
  fields.zeros(8);          // bp_len
  fields.u64(event.branchSampleType).u64(event.regsUser).u32(event.stackUser);
  fields.u32(static_cast<uint32_t>(event.clockid)).u64(event.regsIntr);
  std::string bytes = fields.in(encoding_.order);
  bytes.resize(size, '\0');
  return bytes;
}

Fields RecordEncoder::sampleBody(const Sample& sample) const {
  const Event& event = recording_.events.at(sample.event);
  const uint64_t type = _sampleType(event);
  const uint64_t id = recording_.idsOf(sample.event).at(sample.id);
  Fields body;
  const auto u64If = [&](uint64_t bit, uint64_t value) {
    if (has(type, bit)) {
      body.u64(value);
    }
  };
  u64If(SampleBit::IDENTIFIER, id);
  u64If(SampleBit::IP, sample.ip);
  if (has(type, SampleBit::TID)) {
    body.u32(sample.pid).u32(sample.tid);
  }
  u64If(SampleBit::TIME, sample.time);
  u64If(SampleBit::ADDR, sample.address);
  u64If(SampleBit::ID, id);
  u64If(SampleBit::STREAM_ID, sample.streamId);
  if (has(type, SampleBit::CPU)) {
    body.u32(sample.cpu).u32(0);
  }
  u64If(SampleBit::PERIOD, sample.period);
  if (has(type, SampleBit::READ)) {
    body.u64s(sample.read.empty() ? std::vector<uint64_t>(readWords(event.readFormat))
                                  : sample.read);
  }
  if (has(type, SampleBit::CALLCHAIN)) {
    body.u64(sample.chain.size()).u64s(sample.chain);
  }
  if (has(type, SampleBit::RAW)) {
    body.u32(static_cast<uint32_t>(sample.raw.size())).bytes(sample.raw);
  }
  if (has(type, SampleBit::BRANCH_STACK)) {
    appendBranches(body, event, sample);
  }
  if (has(type, SampleBit::REGS_USER)) {
    appendRegisters(body, sample.regsUser);
  }
  if (has(type, SampleBit::STACK_USER)) {
    appendStack(body, sample);
  }
  u64If(SampleBit::WEIGHT | SampleBit::WEIGHT_STRUCT, sample.weight);
  u64If(SampleBit::DATA_SRC, sample.dataSource);
  u64If(SampleBit::TRANSACTION, sample.transaction);
  if (has(type, SampleBit::REGS_INTR)) {
    appendRegisters(body, sample.regsIntr);
  }
  u64If(SampleBit::PHYS_ADDR, sample.physicalAddress);
  u64If(SampleBit::CGROUP, sample.cgroup);
  u64If(SampleBit::DATA_PAGE_SIZE, sample.dataPageSize);
  u64If(SampleBit::CODE_PAGE_SIZE, sample.codePageSize);
  if (has(type, SampleBit::AUX)) {
    body.u64(sample.aux.size()).bytes(sample.aux);
  }
  return body;
}

uint64_t RecordEncoder::_sampleType(const Event& event) const {
  switch (encoding_.identification) {
    case Identification::ID:
      return event.sampleType | SampleBit::ID;
    case Identification::IDENTIFIER:
      return event.sampleType | SampleBit::IDENTIFIER;
    case Identification::NONE:
      break;
  }
  return event.sampleType;
}

uint64_t RecordEncoder::_attributeFlags(const Event& event) const {
  uint64_t flags = FLAG_MMAP | FLAG_COMM | FLAG_TASK | event.moreFlags;
  flags |= event.isFrequency ? FLAG_FREQ : 0;
  flags |= event.clockid != 0 ? FLAG_USE_CLOCKID : 0;
  flags |= encoding_.hasSampleIdAll ? FLAG_SAMPLE_ID_ALL : 0;
  flags |= encoding_.maps != Maps::MMAP ? FLAG_MMAP2 | FLAG_COMM_EXEC : 0;
  flags |= encoding_.maps == Maps::MMAP2_BUILD_ID ? FLAG_BUILD_ID : 0;
  return flags;
}

std::string RecordEncoder::_withTrailer(uint32_t type, uint16_t misc, Fields body,
                                        const Origin& origin) const {
  if (!encoding_.hasSampleIdAll || type >= FIRST_USER_TYPE) {
    return plainBytes(type, misc, body);
  }
  const uint64_t sampleType = _sampleType(recording_.events.at(0));
  const uint64_t id = recording_.idsOf(0).at(0);
  Fields trailer;
  if (has(sampleType, SampleBit::TID)) {
    trailer.u32(origin.pid).u32(origin.tid);
  }
  if (has(sampleType, SampleBit::TIME)) {
    trailer.u64(origin.time);
  }
  if (has(sampleType, SampleBit::ID)) {
    trailer.u64(id);
  }
  if (has(sampleType, SampleBit::STREAM_ID)) {
    trailer.u64(0);
  }
  if (has(sampleType, SampleBit::CPU)) {
    trailer.u32(origin.cpu).u32(0);
  }
  if (has(sampleType, SampleBit::IDENTIFIER)) {
    trailer.u64(id);
  }
  if (origin.time == 0) {
    return plainBytes(type, misc, body.zeros(trailer.size()));
  }
  return plainBytes(type, misc, body.append(trailer));
}

std::string RecordEncoder::_map(const Map& map) const {
  const bool isMmap2 = encoding_.maps != Maps::MMAP;
  const bool hasBuildId = encoding_.maps == Maps::MMAP2_BUILD_ID && !map.buildId.empty();
  uint16_t misc = static_cast<uint16_t>(map.mode);
  Fields body;
  body.u32(map.pid).u32(map.tid).u64(map.address).u64(map.length).u64(map.pageOffset);
  if (hasBuildId) {
    misc |= MISC_MMAP_BUILD_ID;
    const std::string id = map.buildId.substr(0, BUILD_ID_BYTES);
    body.u8(static_cast<uint8_t>(id.size())).zeros(3);
    body.bytes(id).zeros(BUILD_ID_BYTES - id.size());
  } else if (isMmap2) {
    body.u32(map.major).u32(map.minor).u64(map.inode).u64(map.generation);
  }
  if (isMmap2) {
    body.u32(map.protection).u32(map.flags);
  }
  misc |= map.isData ? MISC_MMAP_DATA : 0;
  body.text(map.file);
  return _withTrailer(isMmap2 ? TYPE_MMAP2 : TYPE_MMAP, misc, body,
                      {map.pid, map.tid, map.time, map.cpu});
}

std::string RecordEncoder::_task(uint32_t type, const Task& task) const {
  Fields body;
  body.u32(task.pid).u32(task.parentPid).u32(task.tid).u32(task.parentTid).u64(task.time);
  // The trailer is the parent's where a task begins: it runs then.
  const bool isFork = type == TYPE_FORK;
  return _withTrailer(type, 0, body,
                      {isFork ? task.parentPid : task.pid, isFork ? task.parentTid : task.tid,
                       task.time, task.cpu});
}

std::string RecordEncoder::_other(const Other& other) const {
  return _withTrailer(other.type, other.misc, other.body,
                      {other.pid, other.tid, other.time, other.cpu}) +
         other.behind;
}

bool isMadeByPerf(const Record& record) {
  return std::visit(
      Overloaded{
          [](const Sample&) { return false; },
          [](const FinishedRound&) { return true; },
          [](const Other& other) { return other.time == 0 || other.type >= FIRST_USER_TYPE; },
          [](const auto& timed) { return timed.time == 0; },
      },
      record);
}

uint32_t cpuOf(const Record& record) {
  return std::visit(Overloaded{
                        [](const FinishedRound&) { return uint32_t{0}; },
                        [](const auto& timed) { return timed.cpu; },
                    },
                    record);
}

}  // namespace made
