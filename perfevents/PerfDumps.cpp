// The readable dumps of a recording and of its attributes. Nothing parses them.
#include <iomanip>
#include <ostream>
#include <string>

#include "perfevents/PerfEventAttribute.h"
#include "perfevents/PerfRecordFileReader.h"

namespace perfevents {

namespace {

constexpr const char* INDENT = "    ";

// One indented line: a label, then whatever is to follow it.
template <typename... Values>
void _line(std::ostream& out, const Values&... values) {
  out << INDENT;
  (out << ... << values) << out.widen('\n');
}

struct Hex {
  uint64_t value;
};

std::ostream& operator<<(std::ostream& out, const Hex& hex) {
  return out << std::hex << hex.value << std::dec;
}

void _ids(std::ostream& out, const std::vector<uint64_t>& ids) {
  out << INDENT << "Related stream IDs: ";
  for (const uint64_t id : ids) {
    out << id << ", ";
  }
  out << out.widen('\n');
}

void _features(std::ostream& out, const PerfRecordFileReader& reader) {
  out << INDENT << "Feature bits:";
  const char fill = out.fill('0');
  for (const uint64_t word : reader.header().features) {
    out << " 0x" << std::hex << std::setw(8) << word << std::dec;
  }
  out.fill(fill);
  out << out.widen('\n');
}

void _section(std::ostream& out, const char* label,
              const PerfRecordFileReader::PerfFileSection& section) {
  _line(out, label, section.offset, " size: ", section.size);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const PerfRecordFileReader& reader) {
  const char newline = out.widen('\n');
  const PerfRecordFileReader::PerfFileHeader& header = reader.header();
  const std::string magic(header.magic.data(), header.magic.size());
  out << "Perf record output file summary" << newline;
  out << std::string(40, '-') << newline;
  out << "File Size: " << reader.fileSize() << newline;
  out << "Header:" << newline;
  _line(out, "Magic: ", magic.c_str());  // up to an embedded NUL
  _line(out, "Header size: ", header.size);
  _line(out, "Attribute size: ", header.attrSize);
  _section(out, "Attribute section:         offset: ", header.attrs);
  _section(out, "Trace point types section: offset: ", header.eventTypes);
  _section(out, "Event data section:        offset: ", header.data);
  _features(out, reader);
  out << "**** Attributes ****" << newline;
  out << reader.getAttributes().size() << " attributes" << newline;
  for (const PerfEventAttribute& attribute : reader.getAttributes()) {
    out << attribute;
  }
  out << "**** Trace point event types ****" << newline;
  out << reader.getTraceEventTypes().size() << " trace point events" << newline;
  for (const auto& [id, name] : reader.getTraceEventTypes()) {
    out << "Event ID: " << id << " name: " << name << newline;
  }
  return out;
}

std::ostream& operator<<(std::ostream& out, const PerfEventAttribute& attribute) {
  const PerfEventAttribute& a = attribute;
  _line(out, "Perf Event Attribute:");
  _ids(out, a.ids());
  _line(out, "Type: ", a.type());
  _line(out, "Size: ", a.size(), " (0x", Hex{a.size()}, ")");
  _line(out, "Config: ", a.config(), " (0x", Hex{a.config()}, ")");
  _line(out, "Sampling ", a.freq() ? "frequency: " : "period: ", a.samplePeriod());
  _line(out, "Sample type: 0x", Hex{a.sampleType()});
  _line(out, "Always get sample data: ", a.sampleIdAll());
  _line(out, "Read format: 0x", Hex{a.readFormat()});
  _line(out, "----");
  _line(out, "Include fork/exit: ", a.task());
  _line(out, "Include mmap events: ", a.mmap());
  _line(out, "Include mmap data: ", a.mmapData());
  _line(out, "Record comm events: ", a.comm());
  _line(out, "Disabled on creation: ", a.disabled());
  _line(out, "Enable on exec: ", a.enableOnExec());
  _line(out, "Count child tasks: ", a.inherit());
  _line(out, "Count child context switches: ", a.inheritStat());
  _line(out, "Is pinned to CPU: ", a.pinned());
  _line(out, "Is CPU exclusive: ", a.exclusive());
  _line(out, "Exclude user space events: ", a.excludeUser());
  _line(out, "Exclude kernel space events: ", a.excludeKernel());
  _line(out, "Exclude hypervisor events: ", a.excludeHv());
  _line(out, "Exclude CPU idle events: ", a.excludeIdle());
  _line(out, "Exclude VM host events: ", a.excludeHost());
  _line(out, "Exclude VM guest events: ", a.excludeGuest());
  _line(out, "Exclude kernel callchains: ", a.excludeCallchainKernel());
  _line(out, "Exclude user callchains: ", a.excludeCallchainUser());
  _line(out, "Watermark: ", a.watermark());
  _line(out, "Wakeup rate: ", a.wakeupEvents());
  _line(out, "IP precision: ", a.preciseIp());
  _line(out, "Hardware breakpoint type: 0x", Hex{a.bpType()});
  _line(out, "Get breakpoint address/config1: 0x", Hex{a.bpAddr()});
  _line(out, "Get breakpoint length/config2: 0x", Hex{a.bpLen()});
  _line(out, "Branch sample type: ", a.branchSampleType());
  _line(out, "User registers: 0x", Hex{a.sampleRegsUser()});
  _line(out, "User stack size: ", a.sampleStackUser());
  return out;
}

}  // namespace perfevents
