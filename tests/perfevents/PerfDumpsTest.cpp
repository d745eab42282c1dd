// The readable dumps. Blank lines and indentation are free; what the lines say is not.
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/PerfEventAttribute.h"
#include "perfevents/PerfRecordFileReader.h"
#include "tests/perfevents/Decoded.h"
#include "tests/perfevents/PerfFileFixture.h"
#include "tests/support/PerfFileBuilder.h"

namespace {

using perfevents::PerfEventAttribute;
using perfevents::PerfRecordFileReader;
using testing::ElementsAreArray;
using Header = PerfFileBuilder::Header;

template <typename T>
std::string dumpOf(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

// The lines less their indentation, without the blank ones.
std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    line.erase(0, line.find_first_not_of(' '));
    if (!line.empty()) {
      lines.push_back(line);
    }
  }
  return lines;
}

// The 37 lines of an attribute that is all zero, but for its size field.
std::vector<std::string> linesOfZeroAttribute(const std::string& ids) {
  return {"Perf Event Attribute:",
          "Related stream IDs: " + ids,
          "Type: 0",
          "Size: 96 (0x60)",
          "Config: 0 (0x0)",
          "Sampling period: 0",
          "Sample type: 0x0",
          "Always get sample data: 0",
          "Read format: 0x0",
          "----",
          "Include fork/exit: 0",
          "Include mmap events: 0",
          "Include mmap data: 0",
          "Record comm events: 0",
          "Disabled on creation: 0",
          "Enable on exec: 0",
          "Count child tasks: 0",
          "Count child context switches: 0",
          "Is pinned to CPU: 0",
          "Is CPU exclusive: 0",
          "Exclude user space events: 0",
          "Exclude kernel space events: 0",
          "Exclude hypervisor events: 0",
          "Exclude CPU idle events: 0",
          "Exclude VM host events: 0",
          "Exclude VM guest events: 0",
          "Exclude kernel callchains: 0",
          "Exclude user callchains: 0",
          "Watermark: 0",
          "Wakeup rate: 0",
          "IP precision: 0",
          "Hardware breakpoint type: 0x0",
          "Get breakpoint address/config1: 0x0",
          "Get breakpoint length/config2: 0x0",
          "Branch sample type: 0",
          "User registers: 0x0",
          "User stack size: 0"};
}

// Replaces the line that begins with `label`.
void setLine(std::vector<std::string>& lines, const std::string& label, const std::string& value) {
  for (std::string& line : lines) {
    if (line.substr(0, label.size()) == label) {
      line = label + value;
      return;
    }
  }
  ADD_FAILURE() << "no line " << label;
}

class PerfDumpsTest : public PerfFileFixture {};

TEST_F(PerfDumpsTest, AttributeWithoutIdsHasTheirLabelWithNothingBehindIt) {
  EXPECT_THAT(linesOf(dumpOf(decoded(Attr()))), ElementsAreArray(linesOfZeroAttribute("")));
}

TEST_F(PerfDumpsTest, AttributeListsItsIdsEachWithAComma) {
  const PerfEventAttribute attribute = decoded(Attr(), {7, 0xFFFFFFFFFFFFFFFF});
  EXPECT_THAT(linesOf(dumpOf(attribute)),
              ElementsAreArray(linesOfZeroAttribute("7, 18446744073709551615, ")));
}

TEST_F(PerfDumpsTest, NumbersOfAnAttributeInTheirBases) {
  const PerfEventAttribute attribute = decoded(Attr()
                                                   .type(31)
                                                   .sizeField(32)
                                                   .config(33)
                                                   .samplePeriod(34)
                                                   .sampleType(0x4C7)
                                                   .readFormat(0xABCDEF0123456789)
                                                   .wakeupEvents(35)
                                                   .bpType(36)
                                                   .bpAddr(0xFFFFFFFFFFFFFFFF)
                                                   .bpLen(38)
                                                   .branchSampleType(39)
                                                   .sampleRegsUser(40)
                                                   .sampleStackUser(41));
  std::vector<std::string> expected = linesOfZeroAttribute("");
  setLine(expected, "Type: ", "31");
  setLine(expected, "Size: ", "32 (0x20)");
  setLine(expected, "Config: ", "33 (0x21)");
  setLine(expected, "Sampling period: ", "34");
  setLine(expected, "Sample type: 0x", "4c7");
  setLine(expected, "Read format: 0x", "abcdef0123456789");
  setLine(expected, "Wakeup rate: ", "35");
  setLine(expected, "Hardware breakpoint type: 0x", "24");
  setLine(expected, "Get breakpoint address/config1: 0x", "ffffffffffffffff");
  setLine(expected, "Get breakpoint length/config2: 0x", "26");
  setLine(expected, "Branch sample type: ", "39");
  setLine(expected, "User registers: 0x", "28");
  setLine(expected, "User stack size: ", "41");
  EXPECT_THAT(linesOf(dumpOf(attribute)), ElementsAreArray(expected));
}

TEST_F(PerfDumpsTest, EachFlagOfAnAttributeHasItsLine) {
  const std::vector<std::string> labels = {"Disabled on creation: ",
                                           "Count child tasks: ",
                                           "Is pinned to CPU: ",
                                           "Is CPU exclusive: ",
                                           "Exclude user space events: ",
                                           "Exclude kernel space events: ",
                                           "Exclude hypervisor events: ",
                                           "Exclude CPU idle events: ",
                                           "Include mmap events: ",
                                           "Record comm events: ",
                                           "",  // the frequency, below
                                           "Count child context switches: ",
                                           "Enable on exec: ",
                                           "Include fork/exit: ",
                                           "Watermark: ",
                                           "",  // the precision, below
                                           "",
                                           "Include mmap data: ",
                                           "Always get sample data: ",
                                           "Exclude VM host events: ",
                                           "Exclude VM guest events: ",
                                           "Exclude kernel callchains: ",
                                           "Exclude user callchains: "};
  for (std::size_t bit = 0; bit < labels.size(); ++bit) {
    if (!labels[bit].empty()) {
      std::vector<std::string> expected = linesOfZeroAttribute("");
      setLine(expected, labels[bit], "1");
      EXPECT_THAT(linesOf(dumpOf(decoded(Attr().flags(uint64_t{1} << bit)))),
                  ElementsAreArray(expected));
    }
  }
}

TEST_F(PerfDumpsTest, FrequencyInsteadOfPeriod) {
  const PerfEventAttribute attribute = decoded(Attr().samplePeriod(4000).flags(uint64_t{1} << 10));
  std::vector<std::string> expected = linesOfZeroAttribute("");
  setLine(expected, "Sampling ", "frequency: 4000");
  EXPECT_THAT(linesOf(dumpOf(attribute)), ElementsAreArray(expected));
}

TEST_F(PerfDumpsTest, PrecisionOfTheIp) {
  std::vector<std::string> expected = linesOfZeroAttribute("");
  setLine(expected, "IP precision: ", "3");
  EXPECT_THAT(linesOf(dumpOf(decoded(Attr().flags(uint64_t{3} << 15)))),
              ElementsAreArray(expected));
}

TEST_F(PerfDumpsTest, AttributeDumpLeavesTheStreamDecimalAndReturnsIt) {
  std::ostringstream out;
  const PerfEventAttribute attribute = decoded(Attr());
  std::ostream& returned = out << attribute;
  EXPECT_EQ(&returned, &out);
  const std::size_t dumped = out.str().size();
  EXPECT_EQ(out.str().back(), '\n');
  out << 16;
  EXPECT_EQ(out.str().substr(dumped), "16");
}

TEST_F(PerfDumpsTest, SummaryOfAFile) {
  PerfFileBuilder builder;
  builder.attribute(Attr().ids({7})).attribute(Attr().ids({8, 9}));
  builder.eventType(20, "twenty").eventType(3, "three").comm(1, 2, "app");
  builder.header(Header::FEATURES_0, 0xAB).header(Header::FEATURES_1, 0);
  builder.header(Header::FEATURES_2, 0x123456789A).header(Header::FEATURES_3, 0xFFFFFFFF);
  const PerfRecordFileReader reader(open(builder), true);

  std::vector<std::string> expected = {
      "Perf record output file summary",
      "----------------------------------------",
      "File Size: 520",
      "Header:",
      "Magic: PERFILE2",
      "Header size: 104",
      "Attribute size: 112",
      "Attribute section:         offset: 128 size: 224",
      "Trace point types section: offset: 352 size: 144",
      "Event data section:        offset: 496 size: 24",
      "Feature bits: 0x000000ab 0x00000000 0x123456789a 0xffffffff",
      "**** Attributes ****",
      "2 attributes"};
  for (const char* const ids : {"7, ", "8, 9, "}) {
    const std::vector<std::string> attribute = linesOfZeroAttribute(ids);
    expected.insert(expected.end(), attribute.begin(), attribute.end());
  }
  expected.insert(expected.end(), {"**** Trace point event types ****", "2 trace point events",
                                   "Event ID: 3 name: three", "Event ID: 20 name: twenty"});
  EXPECT_THAT(linesOf(dumpOf(reader)), ElementsAreArray(expected));
}

TEST_F(PerfDumpsTest, SummaryWithoutTraceEventTypes) {
  const PerfRecordFileReader reader(open(file()), true);
  const std::string dump = dumpOf(reader);
  EXPECT_EQ(linesOf(dump).back(), "0 trace point events");
  EXPECT_EQ(dump.find("Event ID: "), std::string::npos);
}

TEST_F(PerfDumpsTest, SummaryWithoutAttributes) {
  const PerfRecordFileReader reader(open(file().header(Header::ATTRS_SIZE, 0)), false);
  const std::string dump = dumpOf(reader);
  EXPECT_NE(dump.find("0 attributes\n"), std::string::npos);
  EXPECT_EQ(dump.find("Perf Event Attribute:"), std::string::npos);
}

TEST_F(PerfDumpsTest, MagicStopsAtItsFirstNul) {
  const PerfRecordFileReader reader(open(file().magic(std::string("PE\0FILE2", 8))), true);
  EXPECT_NE(dumpOf(reader).find("Magic: PE\n"), std::string::npos);
}

TEST_F(PerfDumpsTest, SummaryLeavesTheStreamDecimalAndReturnsIt) {
  const PerfRecordFileReader reader(open(file()), true);
  std::ostringstream out;
  std::ostream& returned = out << reader;
  EXPECT_EQ(&returned, &out);
  const std::size_t dumped = out.str().size();
  EXPECT_EQ(out.str().back(), '\n');
  out << 16;
  EXPECT_EQ(out.str().substr(dumped), "16");
}

}  // namespace
