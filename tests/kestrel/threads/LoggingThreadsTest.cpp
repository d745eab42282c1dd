// Loggers and adapters used by several threads at once.
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/json/JSOM.h"
#include "kestrel/log/FileLogAdapter.h"
#include "kestrel/log/LogAdapter.h"
#include "kestrel/log/LogAdapterStore.h"
#include "kestrel/log/Logger.h"
#include "tests/support/StreamCapture.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestAccess.h"

namespace {

using kestrel::Logger;
using kestrel::LogLevel;

constexpr int THREADS = 8;

void inThreads(const std::function<void(int)>& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < THREADS; ++i) {
    threads.emplace_back(work, i);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

// What thread `thread` writes as its line number `line`: of a length of its own, all of one letter.
std::string messageOf(int thread, int line) {
  return std::to_string(line) + " " +
         std::string(static_cast<std::size_t>(10 + line % 40), static_cast<char>('a' + thread));
}

void logLines(int thread, int lines) {
  Logger* const logger = Logger::getLogger("Thread" + std::to_string(thread));
  for (int line = 0; line < lines; ++line) {
    logger->warnf("%s", messageOf(thread, line).c_str());
  }
}

// Every line is whole, each thread's lines are all there and in their order.
void expectWhole(const std::string& text, int linesEach) {
  std::map<std::string, int> next;
  std::istringstream in(text);
  std::string line;
  int count = 0;
  while (std::getline(in, line)) {
    const std::size_t open = line.find(" [Thread");
    ASSERT_EQ(open, std::string("Mar 07 14:03:09.042").size()) << line;
    const int thread = line[open + 8] - '0';
    const std::string expected = " [Thread" + std::to_string(thread) + "]: WARN " +
                                 messageOf(thread, next[std::to_string(thread)]++);
    ASSERT_EQ(line.substr(open), expected);
    ++count;
  }
  EXPECT_EQ(count, THREADS * linesEach);
}

class LoggingThreadsTest : public testing::Test {
 protected:
  LoggingThreadsTest() { kestrel::TestAccess::resetLogging(); }
  ~LoggingThreadsTest() override { kestrel::TestAccess::resetLogging(); }
};

TEST_F(LoggingThreadsTest, LinesOnStandardOutputAreNeverTorn) {
  for (const bool buffering : {true, false}) {
    if (!buffering) {
      Logger::disableBuffering();
    }
    StdoutCapture out;
    inThreads([](int thread) { logLines(thread, 300); });
    expectWhole(out.stop(), 300);
  }
}

TEST_F(LoggingThreadsTest, LinesOfEightThreadsSurviveRotationWhole) {
  for (const char* fileCount : {"90", "4000000000"}) {  // by number, and by listing
    const TempDir temp;
    kestrel::JSOM config;
    config.fromString("{\"adapter\": {\"type\": \"file\", \"maxSize\": 3000, \"fileCount\": " +
                      std::string(fileCount) + ", \"baseName\": \"" + temp.file("log") + "\"}}");
    kestrel::LogAdapterStore::Instance()->addFactory("file", new kestrel::FileLogAdapterFactory());
    Logger::useConfig(config);
    inThreads([](int thread) { logLines(thread, 250); });
    Logger::flushAll();

    std::string text;
    int files = 0;
    while (temp.has("log." + std::to_string(files + 1))) {
      ++files;
    }
    EXPECT_GT(files, 20);
    EXPECT_LT(files, 89);  // none was lost at the end
    for (int i = files; i > 0; --i) {
      const std::string part = temp.read("log." + std::to_string(i));
      EXPECT_LT(part.size(), 3100u);
      text += part;
    }
    expectWhole(text + temp.read("log"), 250);
  }
}

TEST_F(LoggingThreadsTest, FlushesAndRotationsDoNotRace) {
  const TempDir temp;
  kestrel::JSOM config;
  config.fromString("{\"maxSize\": 200, \"fileCount\": 3, \"baseName\": \"" + temp.file("log") +
                    "\"}");
  kestrel::FileLogAdapter adapter(config);
  inThreads([&adapter](int thread) {
    std::string name = "name";
    for (int i = 0; i < 100; ++i) {
      adapter.log(*LogLevel::LVL_INFO, name, "message", thread % 2 == 0);
      adapter.flush();
    }
  });
}

TEST_F(LoggingThreadsTest, OneLoggerForANameWhoeverAsks) {
  std::vector<Logger*> loggers(THREADS);
  inThreads([&loggers](int thread) {
    for (int i = 0; i < 100; ++i) {
      Logger::getLogger("own " + std::to_string(thread) + std::to_string(i));
      loggers[static_cast<std::size_t>(thread)] = Logger::getLogger("shared by all");
    }
  });
  EXPECT_THAT(loggers, testing::Each(loggers[0]));
}

TEST_F(LoggingThreadsTest, LevelsMayChangeWhileOthersLog) {
  StdoutCapture out;
  inThreads([](int thread) {
    Logger* const logger = Logger::getLogger("changing");
    for (int i = 0; i < 200; ++i) {
      if (thread == 0) {
        logger->setLevel(i % 2 == 0 ? *LogLevel::LVL_WARN : *LogLevel::LVL_TRACE);
        Logger::setMasterLogLevel(i % 3 == 0 ? *LogLevel::LVL_ERROR : *LogLevel::LVL_ALL);
        Logger::setDefaultLogLevel(*LogLevel::LVL_DEBUG);
      } else {
        logger->infof("%d", i);
        logger->getLevel();
      }
    }
  });
}

TEST_F(LoggingThreadsTest, AdapterMayBeReplacedWhileOthersLog) {
  class Adapter : public kestrel::LogAdapter {
   public:
    ~Adapter() override { alive_ = 0; }
    void log(const LogLevel&, std::string&, const char*, bool) override { EXPECT_EQ(alive_, 1); }
    void log(const LogLevel&, std::string&, const std::string&, bool) override {}
    void flush() override { EXPECT_EQ(alive_, 1); }

   private:
    volatile int alive_ = 1;
  };
  Logger::setLogAdapter(new Adapter());
  inThreads([](int thread) {
    Logger* const logger = Logger::getLogger("replacing");
    for (int i = 0; i < 300; ++i) {
      if (thread == 0) {
        Logger::setLogAdapter(new Adapter());
      } else {
        logger->errorf("%d", i);
      }
      if (thread == 1) {
        Logger::flushAll();
      }
    }
  });
  kestrel::TestAccess::resetLogging();
}

}  // namespace
