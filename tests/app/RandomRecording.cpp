#include "tests/app/RandomRecording.h"

#include <algorithm>
#include <array>
#include <utility>

#include "tests/app/Recordings.h"

namespace {

constexpr uint64_t PAGE = 0x10000;

// Below, at and above the ranges of libraries, stack, kernel and interrupt vectors.
constexpr std::array<uint64_t, 17> BASES = {
    0,          0x10000,     0x12340000,     0x3FFF0000,         0x40000000,        0xAFFF0000,
    0xB0000000, 0xBEFF0000,  0xBF000000,     0xCEFF0000,         0xCF000000,        0xCFFF0000,
    0xFFFE0000, 0x100000000, 0x7F1234560000, 0xFFFFFFFF81000000, 0xFFFFFFFFFFFE0000};

constexpr std::array<uint64_t, 7> OFFSETS = {0, 1, 0xFFF, 0x1000, 0x8000, 0xFFFE, 0xFFFF};

constexpr std::array<uint64_t, 12> SIZES = {0,       1,       0x10,    0x1000,  0xFFFF,     PAGE,
                                            0x10001, 0x20000, 0x80000, 1 << 30, 1ULL << 40, ~0ULL};

constexpr std::array<const char*, 14> PIECES = {
    "\"", "\\", "\n", "\t", "\b", "\f", "\r", "\1", "\x7F", "\xC3\xA9", "/", "x", "library", " "};

template <typename Values>
auto& oneOf(Values& values, uint64_t number) {
  return values[static_cast<std::size_t>(number % values.size())];
}

struct Builder {
  void operator()(const CommEvent& comm) const { file.comm(comm.pid, comm.tid, comm.name); }
  void operator()(const MapEvent& map) const {
    file.mmap(map.pid, map.pid, map.start, map.size, map.pageOffset, map.name);
  }
  void operator()(const SampleFields& sample) const { file.sample(sample); }

  PerfFileBuilder& file;
};

}  // namespace

// One draw a statement where the order of evaluation is the compiler's: every compiler makes the
// same recording.
RandomRecording::RandomRecording(unsigned seed, const RecordingShape& shape,
                                 std::vector<std::string> files)
    : random_(seed), shape_(shape), files_(std::move(files)), time_(_below(100 * SECOND)) {
  for (unsigned i = 0; i < shape_.places; ++i) {
    addresses_.push_back(_place());
  }
  std::vector<Event> maps;
  for (unsigned i = 0; i < shape_.maps; ++i) {
    maps.emplace_back(_map());
    const auto& map = std::get<MapEvent>(maps.back());
    addresses_.insert(addresses_.end(),
                      {map.start - 1, map.start, map.start + map.size - 1, map.start + map.size});
  }
  for (unsigned i = 0; i < shape_.samples; ++i) {
    if (i * maps.size() / shape_.samples < (i + 1) * maps.size() / shape_.samples) {
      events_.push_back(maps[i * maps.size() / shape_.samples]);
    }
    if (_oneIn(shape_.samples / shape_.names + 1)) {
      events_.emplace_back(CommEvent{_id(), _id(), _text(_oneIn(5) ? 60 : 3)});
    }
    events_.emplace_back(_sample());
  }
}

std::string RandomRecording::bytes() const {
  PerfFileBuilder file = recordingOf(WITH_CALLCHAIN);
  for (const Event& event : events_) {
    std::visit(Builder{file}, event);
  }
  return file.bytes();
}

uint64_t RandomRecording::_below(uint64_t limit) { return random_() % limit; }

// Processes and threads draw from the same numbers, among which are some that look alike in their
// low bits: a table of a power of two has one place for them.
uint32_t RandomRecording::_id() {
  constexpr std::array<uint32_t, 3> ALIKE = {0, 64, 4096};
  const auto number = static_cast<uint32_t>(_below(shape_.processes));
  return number / 3 + ALIKE[number % 3];
}

uint64_t RandomRecording::_place() {
  const uint64_t base = oneOf(BASES, random_());
  const uint64_t page = base + PAGE * _below(4);
  return page + (_oneIn(3) ? _below(PAGE) : oneOf(OFFSETS, random_()));
}

uint64_t RandomRecording::_address() { return oneOf(addresses_, random_()); }

std::string RandomRecording::_text(unsigned mostPieces) {
  std::string text;
  for (uint64_t left = _below(mostPieces + 1); left > 0; --left) {
    text += oneOf(PIECES, random_());
  }
  return text;
}

std::string RandomRecording::_mapName() {
  switch (_below(10)) {
    case 0:
      return "";
    case 1:
      return "ab";  // too short to be shown
    case 2:
      return "{" + _text(6);
    case 3:
      return "kernel";
    case 4: {
      const std::string gone = "/nowhere/gone" + _text(2) + " (deleted)";
      return gone + _text(2);
    }
    case 5:
    case 6:
      return "/nowhere/" + _text(40);
    case 7:
      return "/nowhere/plain";
    default:
      return files_.empty() ? "/nowhere/none" : oneOf(files_, random_());
  }
}

MapEvent RandomRecording::_map() {
  uint64_t start = oneOf(addresses_, _below(shape_.places));
  if (!_oneIn(4)) {
    start &= _oneIn(2) ? ~uint64_t{0xFFF} : ~(PAGE - 1);
  }
  return {_id(), start, oneOf(SIZES, random_()), 0x1000 * _below(3), _mapName()};
}

SampleFields RandomRecording::_sample() {
  // Whole microseconds, halves of them and anything; sometimes before the sample before.
  time_ += _oneIn(3) ? 1000 * _below(100'000) : _oneIn(2) ? 500 * _below(100'000) : _below(SECOND);
  const uint64_t back = _oneIn(20) ? _below(SECOND) : 0;
  const uint64_t ip = _oneIn(50) ? 0 : _address();
  const uint32_t pid = _id();
  const uint32_t tid = _id();
  const uint64_t cpu = _oneIn(9) ? random_() : _below(8);
  SampleFields sample = at(time_ - std::min(time_, back), ip, pid, tid, static_cast<uint32_t>(cpu));
  if (_oneIn(50)) {
    sample.ip = ALL_ONES;
  }
  const uint64_t length = _below(shape_.longestChain + 1);
  for (uint64_t i = 0; i < length; ++i) {
    sample.callchain.push_back(_address());
  }
  return sample;
}
