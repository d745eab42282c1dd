// Files made by a builder, read by the reader under test.
#pragma once

#include <cstdint>
#include <fstream>
#include <ios>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "perfevents/PerfEventData.h"
#include "perfevents/PerfEventDataComm.h"
#include "perfevents/PerfEventDataListener.h"
#include "perfevents/PerfRecordFileReader.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PerfFileBuilder.h"
#include "tests/support/TempDir.h"

// Notes what a walk delivers: the type of each record, a COMM record with its name.
class NotingListener : public perfevents::PerfEventDataListener {
 public:
  void onEventData(const perfevents::PerfEventData& record) override {
    EXPECT_EQ(closed, 0);
    const auto* const comm = dynamic_cast<const perfevents::PerfEventDataComm*>(&record);
    records.push_back(std::to_string(static_cast<unsigned int>(record.getType())) +
                      (comm == nullptr ? "" : " " + comm->comm()));
    misc.push_back(record.misc());
  }
  void onClose() override { ++closed; }

  std::vector<std::string> records;
  std::vector<uint16_t> misc;
  int closed = 0;
};

class PerfFileFixture : public testing::Test {
 protected:
  static constexpr const char* LOGGER = "PerfRecordFileReader";
  static constexpr const char* GARBLED = "Garbled event data header size.  Perf file corrupt.";
  static constexpr const char* SHORT_READ =
      "Error reading event data from perf file.  Perf file corrupt.";

  // A file with one attribute, IP, TID and TIME, and no records.
  static PerfFileBuilder file() { return PerfFileBuilder().attribute(Attr().sampleType(0x7)); }

  // A fresh stream on the file.
  std::ifstream& open(const PerfFileBuilder& builder) {
    stream_ = std::ifstream(builder.writeTo(folder_), std::ios::in | std::ios::binary);
    return stream_;
  }

  // What a reader's lines say while the file is opened.
  std::vector<LogLine> linesOfOpening(const PerfFileBuilder& builder) {
    const LogCapture log;
    const perfevents::PerfRecordFileReader reader(open(builder), true);
    return log.lines(LOGGER);
  }

  // Opening the file fails so, and says it once.
  void expectFailure(const PerfFileBuilder& builder, const std::string& message,
                     bool createStore = true) {
    expectFailure(open(builder), message, createStore);
  }

  void expectFailure(std::ifstream& stream, const std::string& message, bool createStore = true) {
    expectFailureOf([&] { const perfevents::PerfRecordFileReader reader(stream, createStore); },
                    message);
  }

  // The action throws the failure, after an ERROR line.
  template <typename Action>
  void expectFailureOf(Action action, const std::string& message) {
    const LogCapture log;
    try {
      action();
      ADD_FAILURE() << "nothing was thrown; expected: " << message;
    } catch (const std::ios_base::failure& failure) {
      const std::string_view text = failure.what();  // has the library's suffix
      EXPECT_EQ(text.substr(0, message.size()), message);
    }
    EXPECT_THAT(log.messages(LOGGER, "ERROR"), testing::ElementsAre(message));
  }

  // One walk over the file, with its ERROR lines.
  struct Walk {
    std::vector<std::string> records;
    std::vector<uint16_t> misc;
    std::vector<std::string> errors;
    int closed = 0;
  };

  Walk walk(const PerfFileBuilder& builder, bool createStore = true) {
    const LogCapture log(*kestrel::LogLevel::LVL_INFO);
    perfevents::PerfRecordFileReader reader(open(builder), createStore);
    NotingListener listener;
    reader.parseEvents(listener);
    return {listener.records, listener.misc, log.messages(LOGGER, "ERROR"), listener.closed};
  }

  // The walk ends after these records with this error, and says that it has ended.
  void expectBrokenWalk(const PerfFileBuilder& builder, const std::vector<std::string>& records,
                        const std::string& error) {
    for (const bool createStore : {true, false}) {
      SCOPED_TRACE(createStore ? "with a store" : "without a store");
      const Walk seen = walk(builder, createStore);
      if (createStore) {
        EXPECT_EQ(seen.records, records);
      }
      EXPECT_THAT(seen.errors, testing::ElementsAre(error));
      EXPECT_EQ(seen.closed, 1);
    }
  }

  const TempDir folder_;
  std::ifstream stream_;
};
