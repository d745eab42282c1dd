// Rows and log lines on one standard output: what is logged while a row is made stands where it
// would stand if each value had been written at once.
#include <iostream>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/json/JsomWriter.h"
#include "output/SampleWriter.h"
#include "tests/support/EventRecords.h"
#include "tests/support/FreshStores.h"
#include "tests/support/StreamCapture.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestAccess.h"

namespace {

using kestrel::Singleton;

constexpr std::size_t STAMP_BYTES = 20;  // "Nov 21 08:37:33.123 "

class SampleWriterLogTest : public testing::Test {
 protected:
  SampleWriterLogTest() {
    makeStoresAnewIn(temp_.path());
    add(0x8000, "/bin/a", "00008000 T a\n00008100 T z\n");       // keys: map 3, functions 6 and 7
    add(0x10000, "/bin/b", "00010000 T b\n00010100 T z\n");      // map 4, functions 8 and 9
    add(0x20000, "/bin/c", "00020000 T ccc\n00020100 T zzz\n");  // map 5, functions 10 and 11
  }

  // What two samples of one back trace print behind `column` counted bytes of an open array.
  std::string printed(int column) {
    SampleInfo sample;
    sample.time = 1.25;
    sample.ip = 0x8010;
    sample.pid = 5;
    sample.tid = 6;
    sample.cpu = 3;
    sample.backtrace = {0x8010, 0x10010, 0x10020, 0x20000};
    StdoutCapture capture;
    {
      kestrel::JsomWriter writer(&std::cout);
      writer.startArray();
      const std::string blanks(static_cast<std::size_t>(column - 1), ' ');
      writer.write(blanks.data(), column - 1);
      const SampleWriter samples;
      samples.writeSample(writer, sample);
      samples.writeSample(writer, sample);
    }
    std::string text = capture.stop();
    const std::string lines = "[SymbolCache]: ";
    for (std::size_t at; (at = text.find(lines)) != std::string::npos;) {
      const std::size_t begin = at - STAMP_BYTES;
      text.erase(begin, text.find('\n', begin) + 1 - begin);
    }
    const std::string mark = "[SymbolTableStore]: ";
    for (std::size_t at; (at = text.find(mark)) != std::string::npos;) {
      text.replace(at - STAMP_BYTES, STAMP_BYTES + mark.size(), "<");
    }
    return text.substr(static_cast<std::size_t>(column));
  }

 private:
  void add(uint64_t address, const std::string& file, const std::string& list) {
    Singleton<MMapStore>::Instance()->add(mmapRecord(5, 5, address, 0x1000, 0, file));
    const std::string name = "list" + std::to_string(address);
    Singleton<SymbolCache>::Instance()->setOverride(file, temp_.write(name, list));
  }

  const TempDir temp_;
};

}  // namespace

TEST_F(SampleWriterLogTest, TablesAreLoadedWhereTheirFirstAddressStands) {
  EXPECT_EQ(printed(1),
            "<INFO Loaded 2 symbols for '/bin/a'\n"
            "[1,32784,6,1.25,3,6,6,[[32784,6]"
            "<INFO Loaded 2 symbols for '/bin/b'\n"
            ",[65552,8],[65568,8]"
            "<INFO Loaded 2 symbols for '/bin/c'\n"
            ",[131072,10]]]"
            ",[2,32784,6,1.25,3,6,6,[[32784,6],[65552,8],[65568,8],[131072,10]]]]");
}

TEST_F(SampleWriterLogTest, AlsoWhereALineEnds) {
  EXPECT_EQ(printed(24570),
            "<INFO Loaded 2 symbols for '/bin/a'\n"
            "[1,32784,\n6,1.25,3,6,6,[[32784,6]"
            "<INFO Loaded 2 symbols for '/bin/b'\n"
            ",[65552,8],[65568,8]"
            "<INFO Loaded 2 symbols for '/bin/c'\n"
            ",[131072,10]]]"
            ",[2,32784,6,1.25,3,6,6,[[32784,6],[65552,8],[65568,8],[131072,10]]]]");
}
