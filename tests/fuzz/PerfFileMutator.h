// Changes recordings in ways that keep most of them sound, so that inputs get past the header and
// deep into the two passes: records that refer to each other, samples in the layout of the
// attributes, addresses at the edges of maps. The same seed makes the same changes.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>

#include "tests/fuzz/PerfFileInput.h"
#include "tests/support/PerfFileBuilder.h"

class PerfFileMutator {
 public:
  explicit PerfFileMutator(unsigned seed) : random_(seed) {}

  // A recording made up from nothing.
  std::string generate();
  // The recording with one to a few changes.
  std::string mutate(std::string_view bytes);
  // A recording of the attributes of one of the two and of records of both.
  std::string crossOver(std::string_view one, std::string_view other);

 private:
  bool _oneIn(unsigned n) { return _below(n) == 0; }
  std::size_t _below(std::size_t n) { return n == 0 ? 0 : random_() % n; }
  uint64_t _anyNumber();
  uint64_t _address(const PerfFileInput& input);
  uint32_t _process();
  std::string _name();
  SampleFields _sample(const PerfFileInput& input);
  uint64_t _sampleType();

  PerfFileInput::Record _record(const PerfFileInput& input);
  Body _mmapBody(const PerfFileInput& input);
  void _change(PerfFileInput& input);
  void _changeRecords(PerfFileInput& input);
  void _changeRecord(PerfFileInput::Record& record);
  void _changeAttributes(PerfFileInput& input);
  void _rewriteSamples(PerfFileInput& input);
  void _damage(std::string& bytes);

  std::minstd_rand random_;
};
