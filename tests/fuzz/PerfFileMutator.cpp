#include "tests/fuzz/PerfFileMutator.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

constexpr uint32_t MMAP = 1;
constexpr uint32_t LOST = 2;
constexpr uint32_t COMM = 3;
constexpr uint32_t EXIT = 4;
constexpr uint32_t THROTTLE = 5;
constexpr uint32_t UNTHROTTLE = 6;
constexpr uint32_t FORK = 7;
constexpr uint32_t READ = 8;
constexpr uint32_t SAMPLE = 9;

constexpr std::size_t LARGEST_FILE = 1 << 16;
constexpr std::size_t MOST_NAMES_REPEATED = 600;

// The layouts that the program has a decoder of its own for, those next to them, and what current
// recordings have.
constexpr uint64_t SAMPLE_TYPES[] = {0x4C7,   0x487, 0x5A7, 0x1,     0x7,     0x27,    0x3,
                                     0x10187, 0x127, 0x5E7, 0x101A7, 0x107F7, 0x1FFFF, 0x37};

// Where the program's behaviour changes: the kernel's range, the stack, shared libraries, the
// interrupt vectors, made-up pages, the lists that the target provides.
constexpr uint64_t ADDRESSES[] = {0,
                                  1,
                                  0x100,
                                  0x8000,
                                  0x8400,
                                  0x8480,
                                  0xFFFF,
                                  0x10000,
                                  0x3FFFFFFF,
                                  0x40000000,
                                  0x40000400,
                                  0xAFFFFFFF,
                                  0xB0000000,
                                  0xBEFFFFFE,
                                  0xBEFFFFFF,
                                  0xBF000000,
                                  0xBF008000,
                                  0xBF0080FF,
                                  0xCF000000,
                                  0xCF000001,
                                  0xFFFF0000,
                                  0xFFFFFFFE,
                                  0xFFFFFFFF,
                                  0x100000000,
                                  0xFFFFFFFFFFFEFFFF,
                                  0xFFFFFFFFFFFF0000,
                                  0xFFFFFFFFFFFFFFFE,
                                  0xFFFFFFFFFFFFFFFF,
                                  0xFFFFFFFFFFFFFF80,
                                  0xFFFFFFFFFFFFFE00};

constexpr uint64_t NUMBERS[] = {0,
                                1,
                                2,
                                3,
                                7,
                                8,
                                15,
                                16,
                                0x7F,
                                0x80,
                                0xFF,
                                0x100,
                                0x7FFF,
                                0x8000,
                                0xFFFF,
                                0x10000,
                                0x7FFFFFFF,
                                0x80000000,
                                0x1FFF,
                                0x2000,
                                0xFFFFFFFE,
                                0xFFFFFFFF,
                                0x100000000,
                                0x1FFFFFFFFFFFFFFF,
                                0x7FFFFFFFFFFFFFFF,
                                0x8000000000000000,
                                0xFFFFFFFFFFFFFFF8,
                                0xFFFFFFFFFFFFFFFF};

constexpr uint32_t PROCESSES[] = {0, 1, 2, 10, 11, 12, 0x7FFFFFFF, 0xFFFFFFFF};

constexpr const char* NAMES[] = {"",
                                 "a",
                                 "app",
                                 "/bin/app",
                                 "/bin/app",
                                 "/bin/app (deleted)",
                                 " (deleted)",
                                 "kernel",
                                 "{x}",
                                 "{app-0}",
                                 "//anon",
                                 "[vdso]",
                                 "[kernel.kallsyms]_text",
                                 "quote\"backslash\\tab\tfeed\n",
                                 "control\x01\x1F\x7F",
                                 "high\x80\xFF",
                                 "-lib @file"};

void overwrite(std::string& bytes, std::size_t offset, const void* value, std::size_t size) {
  if (offset <= bytes.size()) {
    std::memcpy(bytes.data() + offset, value, std::min(size, bytes.size() - offset));
  }
}

}  // namespace

std::string PerfFileMutator::generate() {
  PerfFileInput input = PerfFileInput::decode({});
  input.setSampleType(_sampleType());
  for (std::size_t left = 1 + _below(24); left > 0; --left) {
    input.records.push_back(_record(input));
  }
  if (_oneIn(2)) {
    _change(input);
  }
  return input.encode();
}

std::string PerfFileMutator::mutate(std::string_view bytes) {
  PerfFileInput input = PerfFileInput::decode(bytes);
  for (std::size_t left = 1 + _below(4); left > 0; --left) {
    _change(input);
  }
  std::string result = input.encode();
  if (_oneIn(8)) {
    _damage(result);
  }
  return result;
}

std::string PerfFileMutator::crossOver(std::string_view one, std::string_view other) {
  PerfFileInput input = PerfFileInput::decode(one);
  const PerfFileInput more = PerfFileInput::decode(other);
  input.records.resize(_below(input.records.size() + 1));
  const std::size_t from = _below(more.records.size() + 1);
  std::copy(more.records.begin() + static_cast<std::ptrdiff_t>(from), more.records.end(),
            std::back_inserter(input.records));
  return input.encode();
}

uint64_t PerfFileMutator::_anyNumber() {
  const uint64_t number = NUMBERS[_below(std::size(NUMBERS))];
  return _oneIn(4) ? number + random_() % 9 - 4 : number;
}

// Often at the edge of a map of the recording.
uint64_t PerfFileMutator::_address(const PerfFileInput& input) {
  if (_oneIn(3)) {
    return ADDRESSES[_below(std::size(ADDRESSES))];
  }
  if (!input.records.empty()) {
    const PerfFileInput::Record& record = input.records[_below(input.records.size())];
    if (record.type == MMAP && record.body.size() >= 24) {
      uint64_t start = 0;
      uint64_t length = 0;
      std::memcpy(&start, record.body.data() + 8, sizeof start);
      std::memcpy(&length, record.body.data() + 16, sizeof length);
      return start + (_oneIn(2) ? length : 0) + _below(5) - 2;
    }
  }
  return 0x1000 * _below(64) + 0x100 * _below(16);
}

uint32_t PerfFileMutator::_process() { return PROCESSES[_below(std::size(PROCESSES))]; }

std::string PerfFileMutator::_name() {
  std::string name = NAMES[_below(std::size(NAMES))];
  if (_oneIn(16)) {
    const std::string piece = name + "/long";
    for (std::size_t left = _below(MOST_NAMES_REPEATED); left > 0; --left) {
      name += piece;
    }
  }
  return name;
}

uint64_t PerfFileMutator::_sampleType() {
  uint64_t type = SAMPLE_TYPES[_below(std::size(SAMPLE_TYPES))];
  if (_oneIn(4)) {
    type ^= uint64_t{1} << _below(17);
  }
  return type;
}

SampleFields PerfFileMutator::_sample(const PerfFileInput& input) {
  SampleFields fields;
  fields.identifier = fields.id = _below(4);
  fields.ip = _address(input);
  fields.pid = _process();
  fields.tid = _oneIn(2) ? fields.pid : _process();
  fields.time = _oneIn(8) ? _anyNumber() : 1000000000 + 1000000 * _below(4000);
  fields.addr = _address(input);
  fields.cpu = static_cast<uint32_t>(_below(4));
  fields.period = _anyNumber();
  const std::size_t callers = _oneIn(8) ? _below(40) : _below(6);
  for (std::size_t i = 0; i < callers; ++i) {
    fields.callchain.push_back(_address(input));
  }
  fields.raw.assign(_below(3) * 4, 'r');
  fields.readBlock.assign(8 * (1 + _below(5)), '\0');
  return fields;
}

Body PerfFileMutator::_mmapBody(const PerfFileInput& input) {
  const uint64_t length = _oneIn(4) ? _anyNumber() : 0x1000 * (1 + _below(4));
  const uint64_t pageOffset = _oneIn(4) ? _anyNumber() : 0x1000 * _below(2);
  Body body;
  body.u32(_process()).u32(_process()).u64(_address(input)).u64(length).u64(pageOffset);
  return body.name(_name());
}

PerfFileInput::Record PerfFileMutator::_record(const PerfFileInput& input) {
  static constexpr uint32_t TYPES[] = {MMAP, MMAP,     COMM,       COMM, SAMPLE, SAMPLE, SAMPLE,
                                       LOST, THROTTLE, UNTHROTTLE, EXIT, FORK,   READ};
  PerfFileInput::Record record;
  record.type = _oneIn(24) ? static_cast<uint32_t>(_anyNumber()) : TYPES[_below(std::size(TYPES))];
  Body body;
  switch (record.type) {
    case MMAP:
      body = _mmapBody(input);
      break;
    case COMM:
      body.u32(_process()).u32(_process()).name(_name());
      break;
    case SAMPLE:
      body.bytes(sampleBody(input.sampleType(), _sample(input)));
      break;
    default:
      for (std::size_t left = _below(6); left > 0; --left) {
        body.u64(_anyNumber());
      }
      break;
  }
  record.body = body.str();
  record.setSize();
  return record;
}

void PerfFileMutator::_change(PerfFileInput& input) {
  switch (_below(8)) {
    case 0:
      _changeAttributes(input);
      break;
    case 1:
      input.setSampleType(_sampleType());
      _rewriteSamples(input);
      break;
    case 2:
      input.magic.back() = static_cast<char>(input.magic.back() ^ (1 << _below(6)));
      break;
    case 3:
    case 4:
      if (!input.records.empty()) {
        _changeRecord(input.records[_below(input.records.size())]);
        break;
      }
      [[fallthrough]];
    default:
      _changeRecords(input);
      break;
  }
}

void PerfFileMutator::_changeRecords(PerfFileInput& input) {
  auto& records = input.records;
  const auto place = [&] {
    return records.begin() + static_cast<std::ptrdiff_t>(_below(records.size()));
  };
  switch (records.empty() ? 0 : _below(6)) {
    case 3:
      records.erase(place());
      break;
    case 4: {
      const PerfFileInput::Record copy = *place();
      records.insert(place(), 1 + _below(4), copy);
      break;
    }
    case 5:
      std::iter_swap(place(), place());
      break;
    default:
      records.insert(place(), _record(input));
      break;
  }
}

void PerfFileMutator::_changeRecord(PerfFileInput::Record& record) {
  const uint64_t number = _anyNumber();
  switch (_below(6)) {
    case 0:
      record.type = static_cast<uint32_t>(_oneIn(4) ? number : 1 + _below(9));
      break;
    case 1:
      record.misc = static_cast<uint16_t>(number);
      break;
    case 2:
      record.size = static_cast<uint16_t>(_oneIn(2) ? number : record.size + _below(17) - 8);
      break;
    case 3:
      record.body.resize(std::min<std::size_t>(_below(record.body.size() + 17), LARGEST_FILE - 16));
      record.setSize();
      break;
    default:
      overwrite(record.body, 4 * _below(record.body.size() / 4 + 1), &number, _oneIn(2) ? 4 : 8);
      break;
  }
}

void PerfFileMutator::_changeAttributes(PerfFileInput& input) {
  auto& attributes = input.attributes;
  PerfFileInput::Attribute& attribute = attributes[_below(attributes.size())];
  const uint64_t number = _anyNumber();
  switch (_below(7)) {
    case 0:
      if (attributes.size() < 8) {
        attributes.push_back(PerfFileInput::Attribute(attribute));
      }
      break;
    case 1:
      if (attributes.size() > 1 || _oneIn(8)) {
        attributes.pop_back();
      }
      if (attributes.empty()) {
        attributes.push_back({Attr().structure(), {}});
      }
      break;
    case 2:
      attribute.ids.push_back(number);
      break;
    case 3:
      attribute.structure.resize(64 + 8 * _below(9), '\0');
      break;
    case 4: {  // read_format
      const uint64_t format = _below(16);
      overwrite(attribute.structure, 32, &format, sizeof format);
      break;
    }
    case 5:
      input.eventTypes.emplace_back(number, _name());
      break;
    default:
      overwrite(attribute.structure, 8 * _below(attribute.structure.size() / 8), &number, 8);
      break;
  }
}

// Samples of the old layout would be skipped or read as nonsense.
void PerfFileMutator::_rewriteSamples(PerfFileInput& input) {
  for (PerfFileInput::Record& record : input.records) {
    if (record.type == SAMPLE && !_oneIn(4)) {
      record.body = sampleBody(input.sampleType(), _sample(input));
      record.setSize();
    }
  }
}

// What no part of a sound file can say: header words that lie, and ends that are missing.
void PerfFileMutator::_damage(std::string& bytes) {
  const uint64_t number = _oneIn(2) ? _anyNumber() : bytes.size() + _below(9) - 4;
  switch (_below(3)) {
    case 0:
      overwrite(bytes, 8 * (1 + _below(12)), &number, sizeof number);
      break;
    case 1:
      overwrite(bytes, 8 * _below(bytes.size() / 8), &number, sizeof number);
      break;
    default:
      bytes.resize(bytes.size() - _below(bytes.size() / 4 + 1));
      break;
  }
}
