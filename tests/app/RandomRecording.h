// Recordings of chance, made to be difficult: few distinct places, so that maps have equal starts,
// lie in one another and are asked for again and again; addresses at and next to the edges of maps
// and of the ranges with a meaning of their own; threads whose process has another id than they
// say; names full of bytes that a document escapes. The same seed gives the same recording
// everywhere.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "tests/support/PerfFileBuilder.h"

struct CommEvent {
  uint32_t pid;
  uint32_t tid;
  std::string name;
};

struct MapEvent {
  uint32_t pid;
  uint64_t start;
  uint64_t size;
  uint64_t pageOffset;
  std::string name;
};

using Event = std::variant<CommEvent, MapEvent, SampleFields>;

struct RecordingShape {
  unsigned maps = 300;
  unsigned samples = 4000;
  unsigned longestChain = 20;
  unsigned places = 600;  // distinct addresses, besides the edges of maps
  unsigned processes = 9;
  unsigned names = 40;  // about so many names are given, all over the recording
};

class RandomRecording {
 public:
  // `files` are names of files that maps may have besides those that do not exist.
  RandomRecording(unsigned seed, const RecordingShape& shape, std::vector<std::string> files);

  const std::vector<Event>& events() const { return events_; }
  // Every address that a sample or a call chain may have.
  const std::vector<uint64_t>& addresses() const { return addresses_; }
  std::string bytes() const;

 private:
  uint64_t _below(uint64_t limit);
  bool _oneIn(unsigned chances) { return _below(chances) == 0; }
  uint32_t _id();
  uint64_t _place();
  uint64_t _address();
  std::string _text(unsigned mostPieces);
  std::string _mapName();
  MapEvent _map();
  SampleFields _sample();

  std::mt19937_64 random_;
  RecordingShape shape_;
  std::vector<std::string> files_;
  std::vector<Event> events_;
  std::vector<uint64_t> addresses_;
  uint64_t time_ = 0;
};
