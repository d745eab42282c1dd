// What a recording says of itself besides its records: where, when and how it was made, and which
// events it counts. All of it may be missing, and every text in it is the recording's own.
// Source: tools/perf/util/header.c, tools/perf/Documentation/perf.data-file-format.txt.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "recordings/Attribute.h"
#include "recordings/FieldReader.h"

namespace recordings {

using BuildId = std::vector<unsigned char>;  // empty: not known

std::string hexText(const BuildId& id);

struct Event {
  Attribute attribute;
  std::vector<std::uint64_t> ids;
  std::string name;  // as perf shows it; made up from the attribute where the file has none
};

// perf's name of an event that has none in the file.
std::string nameOf(const Attribute& attribute);

// A moment on the recording's clock and on the wall clock.
struct ClockData {
  std::int32_t clockId = 0;
  std::uint64_t wallNanoseconds = 0;   // since 1970, UTC
  std::uint64_t clockNanoseconds = 0;  // on the recording's clock
};

struct FileBuildId {
  BuildId id;
  std::string name;  // a path, a module, [kernel.kallsyms], [vdso]
};

struct Facts {
  std::string hostname;
  std::string osRelease;
  std::string perfVersion;
  std::string architecture;  // as uname -m prints it
  std::string processor;     // its name, for people
  std::string processorId;   // its kind, for programs
  std::vector<std::string> commandLine;
  std::optional<ClockData> clockData;
  std::uint64_t firstSampleTime = 0;  // nanoseconds; 0: not known
  std::uint64_t lastSampleTime = 0;
  bool isDirectory = false;  // the samples are in files data.0, data.1 ... beside it
  std::vector<FileBuildId> buildIds;

  // Takes what one feature section says; one that is cut or senseless says nothing. Names go to
  // those of `events` that they belong to.
  void addFeature(unsigned feature, Bytes section, ByteOrder order, std::vector<Event>& events);
  // An entry of the table of build ids, with its record header.
  void addBuildId(Bytes entry, ByteOrder order);

 private:
  void _addBuildIds(Bytes section, ByteOrder order);
  void _addBuildIds(Bytes section, ByteOrder order, bool hasPid);
  void _addBuildId(Bytes entry, ByteOrder order, bool hasPid);
  static void _nameEvents(Bytes section, ByteOrder order, std::vector<Event>& events);
};

}  // namespace recordings
