#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/log/LogAdapter.h"
#include "kestrel/log/Logger.h"
#include "tests/support/LogCapture.h"
#include "tests/support/StreamCapture.h"
#include "tests/support/TestAccess.h"

namespace {

using kestrel::Logger;
using kestrel::LogLevel;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;

const std::string STAMP =
    "[A-Z][a-z][a-z] [0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9]\\.[0-9][0-9][0-9]";

class LoggerTest : public testing::Test {
 protected:
  LoggerTest() { kestrel::TestAccess::resetLogging(); }
  ~LoggerTest() override { kestrel::TestAccess::resetLogging(); }
};

TEST_F(LoggerTest, SameNameGivesTheSameLogger) {
  Logger* const logger = Logger::getLogger("LoggerTest");
  EXPECT_EQ(Logger::getLogger(std::string("LoggerTest")), logger);
  EXPECT_NE(Logger::getLogger("LoggerTest2"), logger);
  EXPECT_EQ(logger->getName(), "LoggerTest");
}

TEST_F(LoggerTest, LevelsAreInfoWhileUnset) {
  EXPECT_EQ(Logger::getDefaultLogLevel().getValue(), 4);
  EXPECT_EQ(Logger::getMasterLogLevel().getValue(), 4);
}

TEST_F(LoggerTest, FirstLoggerSetsTheDefaultToInfoAndTheMasterToAll) {
  Logger* const logger = Logger::getLogger("first of all");
  EXPECT_EQ(Logger::getDefaultLogLevel().getName(), "INFO");
  EXPECT_EQ(Logger::getMasterLogLevel().getName(), "ALL");
  EXPECT_EQ(logger->getLevel().getName(), "INFO");
}

TEST_F(LoggerTest, FirstLoggerLeavesLevelsThatAreSet) {
  Logger::setDefaultLogLevel(*LogLevel::LVL_TRACE);
  Logger::setMasterLogLevel(*LogLevel::LVL_WARN);
  Logger* const logger = Logger::getLogger("first after levels");
  EXPECT_EQ(Logger::getDefaultLogLevel().getName(), "TRACE");
  EXPECT_EQ(Logger::getMasterLogLevel().getName(), "WARN");
  EXPECT_EQ(logger->getLevel().getName(), "TRACE");
}

TEST_F(LoggerTest, FirstLoggerSetsTheOneLevelThatIsUnset) {
  Logger::setMasterLogLevel(*LogLevel::LVL_ERROR);
  Logger::getLogger("first after master level");
  EXPECT_EQ(Logger::getDefaultLogLevel().getName(), "INFO");
  EXPECT_EQ(Logger::getMasterLogLevel().getName(), "ERROR");
}

TEST_F(LoggerTest, LoggerBeforeAChangeOfTheDefaultKeepsItsLevelAndOneAfterGetsTheNew) {
  Logger* const before = Logger::getLogger("before the change");
  Logger::setDefaultLogLevel(*LogLevel::LVL_DEBUG);
  Logger* const after = Logger::getLogger("after the change");
  EXPECT_EQ(before->getLevel().getName(), "INFO");
  EXPECT_EQ(after->getLevel().getName(), "DEBUG");
  EXPECT_EQ(Logger::getLogger("before the change")->getLevel().getName(), "INFO");
}

TEST_F(LoggerTest, LevelsAreCopied) {
  {
    const LogLevel temporary("LOUD", 5);
    Logger::setDefaultLogLevel(temporary);
    Logger::setMasterLogLevel(temporary);
  }
  EXPECT_EQ(Logger::getDefaultLogLevel().getName(), "LOUD");
  EXPECT_EQ(Logger::getMasterLogLevel().getValue(), 5);
}

TEST_F(LoggerTest, LoggersAreVisitedInAscendingNameOrder) {
  class Names : public Logger::LoggerVisitor {
   public:
    void visit(Logger* logger) override { names.push_back(logger->getName()); }
    std::vector<std::string> names;
  } visitor;
  Logger::getLogger("visit b");
  Logger::getLogger("visit a");
  Logger::getLogger("visit C");
  Logger::visitLoggers(visitor);
  EXPECT_TRUE(std::is_sorted(visitor.names.begin(), visitor.names.end()));
  EXPECT_THAT(visitor.names, testing::IsSupersetOf({"visit C", "visit a", "visit b"}));
}

TEST_F(LoggerTest, LineHasTimeMillisecondsLoggerLevelAndMessage) {
  Logger* const logger = Logger::getLogger("PerfRecordFileReader");
  StdoutCapture out;
  logger->warnf("%d of %s", 3, "four");
  EXPECT_THAT(out.stop(), MatchesRegex(STAMP + " \\[PerfRecordFileReader\\]: WARN 3 of four\n"));
}

TEST_F(LoggerTest, LineHasTheLocalTime) {
  setenv("TZ", "XYZ-9", 1);
  tzset();
  Logger* const logger = Logger::getLogger("local");
  std::string before(80, '\0');
  std::string after(80, '\0');
  const auto format = [](std::string& text) {
    const std::time_t now = std::time(nullptr) + 9 * 3600;
    std::tm parts{};
    gmtime_r(&now, &parts);
    text.resize(strftime(text.data(), text.size(), "%b %d %H:%M:%S.", &parts));
  };
  StdoutCapture out;
  format(before);
  logger->warnf("x");
  format(after);
  EXPECT_THAT(out.stop(), testing::AnyOf(testing::StartsWith(before), testing::StartsWith(after)));
  unsetenv("TZ");
  tzset();
}

TEST_F(LoggerTest, EachHelperWritesFromItsLevelOn) {
  const LogCapture log;
  Logger* const logger = Logger::getLogger("helpers");
  const std::vector<std::string> names = {"ERROR", "ERROR", "WARN", "INFO", "DEBUG", "TRACE"};
  const int needed[] = {2, 2, 3, 4, 5, 6};
  for (int value = 0; value <= 8; ++value) {
    for (const bool master : {false, true}) {
      LogCapture lines;
      logger->setLevel(LogLevel::valueOf(master ? 8 : value));
      Logger::setMasterLogLevel(LogLevel::valueOf(master ? value : 8));
      logger->error("m");
      logger->errorf("m");
      logger->warnf("m");
      logger->infof("m");
      logger->debugf("m");
      logger->tracef("m");
      std::vector<LogLine> expected;
      for (std::size_t i = 0; i < names.size(); ++i) {
        if (value >= needed[i]) {
          expected.push_back({names[i], "helpers", "m"});
        }
      }
      EXPECT_EQ(lines.lines(), expected) << value;
    }
  }
}

TEST_F(LoggerTest, MasterLevelWarnStopsInfoOfALoggerAtTraceAndAdmitsWarn) {
  const LogCapture log;
  Logger* const logger = Logger::getLogger("at trace");
  logger->setLevel(*LogLevel::LVL_TRACE);
  Logger::setMasterLogLevel(*LogLevel::LVL_WARN);
  logger->infof("no");
  logger->warnf("yes");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{"WARN", "at trace", "yes"}));
  EXPECT_TRUE(logger->isEnabled(*LogLevel::LVL_WARN));
  EXPECT_FALSE(logger->isEnabled(*LogLevel::LVL_INFO));
}

TEST_F(LoggerTest, LogItselfDoesNotFilter) {
  const LogCapture log;
  Logger* const logger = Logger::getLogger("unfiltered");
  logger->setLevel(*LogLevel::LVL_OFF);
  Logger::setMasterLogLevel(*LogLevel::LVL_OFF);
  logger->log(*LogLevel::LVL_TRACE, "characters");
  logger->log(*LogLevel::LVL_OFF, std::string("string"));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{"TRACE", "unfiltered", "characters"},
                                       LogLine{"OFF", "unfiltered", "string"}));
}

TEST_F(LoggerTest, MessageOf3000BytesIsCutToItsFirst2047) {
  const LogCapture log;
  Logger* const logger = Logger::getLogger("long");
  const std::string message = std::string(2046, 'a') + "bc" + std::string(952, 'd');
  logger->errorf("%s", message.c_str());
  logger->errorf("%s", message.substr(0, 2047).c_str());
  logger->error(message.c_str());  // not formatted: whole
  const std::vector<std::string> messages = log.messages("long", "ERROR");
  ASSERT_EQ(messages.size(), 3u);
  EXPECT_EQ(messages[0], std::string(2046, 'a') + "b");
  EXPECT_EQ(messages[1], messages[0]);
  EXPECT_EQ(messages[2], message);
}

TEST_F(LoggerTest, LongMessageReachesStandardOutputCutToo) {
  Logger* const logger = Logger::getLogger("long");
  StdoutCapture out;
  logger->errorf("%s", std::string(3000, 'x').c_str());
  const std::string line = out.stop();
  EXPECT_THAT(line, EndsWith(": ERROR " + std::string(2047, 'x') + "\n"));
}

TEST_F(LoggerTest, PercentSignsInAMessageAreKept) {
  const LogCapture log;
  Logger::getLogger("percent")->error("100%s %n");
  EXPECT_THAT(log.messages("percent", "ERROR"), ElementsAre("100%s %n"));
}

// The descriptor of standard output sees a line at once only without buffering.
TEST_F(LoggerTest, LinesAreNotFlushedUntilFlushAllOrDisableBuffering) {
  Logger* const logger = Logger::getLogger("buffered");
  StdoutCapture out;
  setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);  // as for a pipe, also when the tests run on a terminal
  EXPECT_TRUE(Logger::isBufferingEnabled());
  logger->errorf("one");
  EXPECT_EQ(out.text(), "");
  Logger::flushAll();
  EXPECT_THAT(out.text(), EndsWith("one\n"));
  logger->errorf("two");
  EXPECT_THAT(out.text(), EndsWith("one\n"));
  Logger::disableBuffering();
  EXPECT_THAT(out.text(), EndsWith("two\n"));
  EXPECT_FALSE(Logger::isBufferingEnabled());
  logger->errorf("three");
  EXPECT_THAT(out.text(), EndsWith("three\n"));
  Logger::enableBuffering();
  logger->errorf("four");
  EXPECT_THAT(out.text(), EndsWith("three\n"));
  EXPECT_THAT(out.stop(), EndsWith("four\n"));
}

TEST_F(LoggerTest, LinesAndOtherOutputShareStandardOutputInProgramOrder) {
  Logger* const logger = Logger::getLogger("order");
  StdoutCapture out;
  printf("document 1\n");
  logger->errorf("line");
  printf("document 2\n");
  EXPECT_THAT(out.stop(),
              MatchesRegex("document 1\n" + STAMP + " \\[order\\]: ERROR line\ndocument 2\n"));
}

// Notes what reaches an adapter, and its end.
class NotingAdapter : public kestrel::LogAdapter {
 public:
  explicit NotingAdapter(std::vector<std::string>& notes) : notes_(notes) {}
  ~NotingAdapter() override { notes_.push_back("destroyed"); }
  void log(const LogLevel& level, std::string& loggerName, const char* message,
           bool buffering) override {
    notes_.push_back(level.getName() + "|" + loggerName + "|" + message + "|" +
                     (buffering ? "buffered" : "unbuffered"));
  }
  void log(const LogLevel& level, std::string& loggerName, const std::string& message,
           bool buffering) override {
    log(level, loggerName, ("string " + message).c_str(), buffering);
  }
  void flush() override { notes_.push_back("flush"); }

 private:
  std::vector<std::string>& notes_;
};

TEST_F(LoggerTest, AdapterGetsEveryLineAndStandardOutputNone) {
  std::vector<std::string> notes;
  Logger* const logger = Logger::getLogger("adapted");
  Logger::setLogAdapter(new NotingAdapter(notes));
  StdoutCapture out;
  logger->warnf("%s", "one");
  logger->log(*LogLevel::LVL_INFO, std::string("two"));
  Logger::flushAll();
  Logger::disableBuffering();
  logger->errorf("three");
  EXPECT_EQ(out.stop(), "");
  EXPECT_THAT(notes, ElementsAre("WARN|adapted|one|buffered", "INFO|adapted|string two|buffered",
                                 "flush", "flush", "ERROR|adapted|three|unbuffered"));
  Logger::disableBuffering();  // not set any more: nothing is flushed
  EXPECT_EQ(notes.size(), 5u);
  kestrel::TestAccess::resetLogging();
}

TEST_F(LoggerTest, ReplacedAdapterIsFlushedAndDestroyed) {
  std::vector<std::string> first;
  std::vector<std::string> second;
  Logger::setLogAdapter(new NotingAdapter(first));
  Logger::setLogAdapter(new NotingAdapter(second));
  EXPECT_THAT(first, ElementsAre("flush", "destroyed"));
  EXPECT_THAT(second, IsEmpty());
  Logger::setLogAdapter(nullptr);
  EXPECT_THAT(second, ElementsAre("flush", "destroyed"));
}

}  // namespace
