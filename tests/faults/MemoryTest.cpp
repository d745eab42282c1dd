// Recordings made to take as much memory as they can for their size.
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "tests/app/DriverRun.h"
#include "tests/faults/PeakMemory.h"

namespace {

constexpr uint64_t PAGE = 0x1'0000;  // of a map that is made up for an address
constexpr uint64_t UNMAPPED = 0x10'0000'0000;
constexpr uint64_t LAST_INTERRUPT = 0xffff'ffff;  // makes a map each time

class MemoryTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!IS_MEMORY_MEASURABLE) {
      GTEST_SKIP() << "memory is not the program's own here";
    }
    driver_.configure("\"freezeSymbolCache\": true");
  }

  // `make(n)` is a recording of about n records.
  void expectBounded(const std::function<PerfFileBuilder(unsigned)>& make, unsigned records) {
    const std::size_t base = _peakOf(make(records)).memory;
    const Peak peak = _peakOf(make(5 * records));
    EXPECT_LT(peak.memory, base + MOST_MEMORY_PER_BYTE * peak.fileSize);
    EXPECT_LT(peak.memory, MOST_MEMORY_AT_REST + MOST_MEMORY_PER_BYTE * peak.fileSize);
  }

 private:
  struct Peak {
    std::size_t memory;
    std::size_t fileSize;
  };

  Peak _peakOf(const PerfFileBuilder& recording) const {
    const std::string path = recording.writeTo(driver_.folder(), "recording.perf");
    const ProgramResult result =
        driver_.run({"-c", "test.conf", "-i", "recording.perf", "-o", "document.json"});
    EXPECT_EQ(result.status, 0);
    return {result.peakMemory, recording.bytes().size()};
  }

  const DriverRun driver_;
};

}  // namespace

TEST_F(MemoryTest, MapsOfManyProcesses) {
  expectBounded(
      [](unsigned count) {
        PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
        for (unsigned i = 0; i < count; ++i) {
          recording.record(1, Body().u32(i).u32(i).u64(PAGE * i).u64(PAGE).u64(0));
        }
        return recording;
      },
      10'000);
}

TEST_F(MemoryTest, ManyThreads) {
  expectBounded(
      [](unsigned count) {
        PerfFileBuilder recording = recordingOf(IP_TID_TIME_CPU);
        for (unsigned i = 0; i < count; ++i) {
          recording.record(3, Body().u32(i).u32(i));
        }
        return recording;
      },
      10'000);
}

TEST_F(MemoryTest, SamplesOfManyProcessesOnPagesThatNobodyMapped) {
  expectBounded(
      [](unsigned count) {
        PerfFileBuilder recording = recordingOf(0x3);  // IP, TID
        for (unsigned i = 0; i < count; ++i) {
          recording.sample(at(0, UNMAPPED + PAGE * i, i, i));
        }
        return recording;
      },
      10'000);
}

TEST_F(MemoryTest, CallChainsThroughPagesThatNobodyMapped) {
  expectBounded(
      [](unsigned count) {
        PerfFileBuilder recording = recordingOf(0x23);  // IP, TID, CALLCHAIN
        for (unsigned i = 0; i < count; ++i) {
          const uint64_t first = UNMAPPED + PAGE * 17 * i;
          std::vector<uint64_t> chain{first};
          for (unsigned j = 1; j <= 16; ++j) {
            chain.push_back(first + PAGE * j);
          }
          recording.sample(withChain(at(0, first, i, i), chain));
        }
        return recording;
      },
      1'000);
}

TEST_F(MemoryTest, CallChainsThroughTheLastInterruptAddress) {
  expectBounded(
      [](unsigned count) {
        PerfFileBuilder recording = recordingOf(0x23);
        const std::vector<uint64_t> chain(17, LAST_INTERRUPT);
        for (unsigned i = 0; i < count; ++i) {
          recording.sample(withChain(at(0, LAST_INTERRUPT, 1, 1), chain));
        }
        return recording;
      },
      1'000);
}

TEST_F(MemoryTest, MapsMadeUpForAProcessWithALongName) {
  expectBounded(
      [](unsigned count) {
        PerfFileBuilder recording = recordingOf(0x3);
        recording.comm(1, 1, std::string(60'000, 'n'));
        for (unsigned i = 0; i < count; ++i) {
          recording.sample(at(0, UNMAPPED + PAGE * i, 1, 1));
        }
        return recording;
      },
      100);
}

TEST_F(MemoryTest, ManySmallAttributes) {
  expectBounded(
      [](unsigned count) {
        PerfFileBuilder recording;
        for (unsigned i = 0; i < count; ++i) {
          recording.attribute(Attr().structureSize(64).ids({i})).eventType(i, "x");
        }
        return recording;
      },
      1'000);
}
