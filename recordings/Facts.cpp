#include "recordings/Facts.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "recordings/Abi.h"

namespace recordings {

namespace {

std::string takeString(FieldReader& fields) {
  const std::uint32_t length = fields.take<std::uint32_t>();
  return fields.takeText(length);
}

std::vector<std::string> takeStrings(FieldReader& fields) {
  std::vector<std::string> strings;
  for (std::uint32_t left = fields.take<std::uint32_t>(); left > 0 && fields.ok(); --left) {
    strings.push_back(takeString(fields));
  }
  return fields.ok() ? strings : std::vector<std::string>();
}

}  // namespace

std::string hexText(const BuildId& id) {
  static constexpr char DIGITS[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : id) {
    text += DIGITS[byte >> 4];
    text += DIGITS[byte & 15];
  }
  return text;
}

std::string nameOf(const Attribute& attribute) {
  static constexpr std::array HARDWARE = {"cycles",
                                          "instructions",
                                          "cache-references",
                                          "cache-misses",
                                          "branches",
                                          "branch-misses",
                                          "bus-cycles",
                                          "stalled-cycles-frontend",
                                          "stalled-cycles-backend",
                                          "ref-cycles"};
  static constexpr std::array SOFTWARE = {
      "cpu-clock",        "task-clock",   "page-faults",  "context-switches",
      "cpu-migrations",   "minor-faults", "major-faults", "alignment-faults",
      "emulation-faults", "dummy",        "bpf-output",   "cgroup-switches"};
  if (attribute.type == abi::TYPE_HARDWARE && attribute.config < HARDWARE.size()) {
    return HARDWARE[attribute.config];
  }
  if (attribute.type == abi::TYPE_SOFTWARE && attribute.config < SOFTWARE.size()) {
    return SOFTWARE[attribute.config];
  }
  return "type-" + std::to_string(attribute.type) + "/config=" + std::to_string(attribute.config) +
         "/";
}

void Facts::addFeature(unsigned feature, Bytes section, ByteOrder order,
                       std::vector<Event>& events) {
  FieldReader fields(section, order);
  switch (feature) {
    case abi::FEATURE_BUILD_ID:
      _addBuildIds(section, order);
      break;
    case abi::FEATURE_HOSTNAME:
      hostname = takeString(fields);
      break;
    case abi::FEATURE_OSRELEASE:
      osRelease = takeString(fields);
      break;
    case abi::FEATURE_VERSION:
      perfVersion = takeString(fields);
      break;
    case abi::FEATURE_ARCH:
      architecture = takeString(fields);
      break;
    case abi::FEATURE_CPUDESC:
      processor = takeString(fields);
      break;
    case abi::FEATURE_CPUID:
      processorId = takeString(fields);
      break;
    case abi::FEATURE_CMDLINE:
      commandLine = takeStrings(fields);
      break;
    case abi::FEATURE_EVENT_DESC:
      _nameEvents(section, order, events);
      break;
    case abi::FEATURE_SAMPLE_TIME:
      firstSampleTime = fields.take<std::uint64_t>();
      lastSampleTime = fields.take<std::uint64_t>();
      break;
    case abi::FEATURE_DIR_FORMAT:
      isDirectory = fields.take<std::uint64_t>() > 0;
      break;
    case abi::FEATURE_CLOCK_DATA: {
      fields.skip(4);
      ClockData data;
      data.clockId = static_cast<std::int32_t>(fields.take<std::uint32_t>());
      data.wallNanoseconds = fields.take<std::uint64_t>();
      data.clockNanoseconds = fields.take<std::uint64_t>();
      if (fields.ok()) {
        clockData = data;
      }
      break;
    }
    default:
      break;
  }
}

void Facts::addBuildId(Bytes entry, ByteOrder order) { _addBuildId(entry, order, true); }

void Facts::_addBuildId(Bytes entry, ByteOrder order, bool hasPid) {
  constexpr std::size_t MOST_FILES = 1u << 18;
  const std::size_t pidSize = hasPid ? abi::BUILD_ID_ENTRY_PID_SIZE : 0;
  const std::size_t nameOffset =
      abi::BUILD_ID_ENTRY_NAME_OFFSET - abi::BUILD_ID_ENTRY_PID_SIZE + pidSize;
  if (entry.size() <= nameOffset || buildIds.size() == MOST_FILES) {
    return;
  }
  const std::uint16_t misc = numberAt<std::uint16_t>(entry.data() + 4, order);
  std::size_t size = abi::BUILD_ID_SIZE;
  if (hasPid && (misc & abi::MISC_BUILD_ID_SIZE) != 0) {
    size = std::min<std::size_t>(entry[abi::BUILD_ID_ENTRY_SIZE_OFFSET], abi::BUILD_ID_SIZE);
  }
  const Bytes id = entry.subspan(abi::RECORD_HEADER_SIZE + pidSize, size);
  FieldReader name(entry.subspan(nameOffset), order);
  buildIds.push_back({BuildId(id.begin(), id.end()), name.takeRestAsText()});
}

// Before 2.6.35 the entries had no pid: read as if they had, the kernel's name lacks its beginning.
void Facts::_addBuildIds(Bytes section, ByteOrder order) {
  static constexpr std::string_view CUT_NAME = "nel.kallsyms]";
  _addBuildIds(section, order, true);
  for (const FileBuildId& file : buildIds) {
    if (file.name == CUT_NAME) {
      buildIds.clear();
      _addBuildIds(section, order, false);
      return;
    }
  }
}

void Facts::_addBuildIds(Bytes section, ByteOrder order, bool hasPid) {
  while (section.size() >= abi::RECORD_HEADER_SIZE) {
    const std::size_t size = numberAt<std::uint16_t>(section.data() + 6, order);
    if (size < abi::RECORD_HEADER_SIZE || size > section.size()) {
      return;
    }
    _addBuildId(section.first(size), order, hasPid);
    section = section.subspan(size);
  }
}

void Facts::_nameEvents(Bytes section, ByteOrder order, std::vector<Event>& events) {
  FieldReader fields(section, order);
  const std::uint32_t count = fields.take<std::uint32_t>();
  const std::uint32_t attributeSize = fields.take<std::uint32_t>();
  for (std::uint32_t i = 0; i < count && i < events.size() && fields.ok(); ++i) {
    fields.skip(attributeSize);
    const std::uint32_t ids = fields.take<std::uint32_t>();
    const std::string name = takeString(fields);
    fields.skip(std::uint64_t{ids} * 8);
    if (!name.empty()) {
      events[i].name = name;
    }
  }
}

}  // namespace recordings
