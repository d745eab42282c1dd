// What the constructors of namespace-scope objects may use, in whatever order they run.
#include <atomic>
#include <string>

#include <gtest/gtest.h>

#include "kestrel/log/LogLevel.h"
#include "kestrel/log/Logger.h"
#include "kestrel/threads/ThreadGroup.h"
#include "tests/kestrel/threads/GroupSupport.h"

namespace {

using kestrel::Logger;
using kestrel::LogLevel;

struct EarlyLogger {
  EarlyLogger()
      : infoName(LogLevel::LVL_INFO == nullptr ? "none" : LogLevel::LVL_INFO->getName()),
        infoValue(LogLevel::LVL_INFO == nullptr ? 0 : LogLevel::LVL_INFO->getValue()),
        allValue(LogLevel::valueOf("all").getValue()),
        logger(Logger::getLogger("early")),
        levelOfLogger(logger->getLevel().getValue()) {
    logger->tracef("not written");
  }

  std::string infoName;
  int infoValue;
  int allValue;
  Logger* logger;
  int levelOfLogger;
};
const EarlyLogger EARLY;

struct EarlyGroup {
  // Closed before main, too: a case runs in a process of its own, which has no other threads.
  EarlyGroup() : spawned(group.spawn(&task, false)) { group.close(); }

  std::atomic<int> runs{0};
  Task task{[this] { ++runs; }};
  kestrel::ThreadGroup group{"Early Group"};
  bool spawned;
};
EarlyGroup earlyGroup;

}  // namespace

TEST(BeforeMainTest, LevelsAreThere) {
  EXPECT_EQ(EARLY.infoName, "INFO");
  EXPECT_EQ(EARLY.infoValue, 4);
  EXPECT_EQ(EARLY.allValue, 8);
}

TEST(BeforeMainTest, LoggersCanBeHad) {
  EXPECT_EQ(EARLY.logger, Logger::getLogger("early"));
  EXPECT_EQ(EARLY.levelOfLogger, 4);
}

TEST(BeforeMainTest, ThreadGroupsRunTheirRunners) {
  EXPECT_TRUE(earlyGroup.spawned);
  EXPECT_LE(earlyGroup.runs, 1);
}
