// Logger::useConfig and loadConfig.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/json/JSOM.h"
#include "kestrel/log/FileLogAdapter.h"
#include "kestrel/log/LogAdapterStore.h"
#include "kestrel/log/Logger.h"
#include "tests/support/StreamCapture.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestAccess.h"

namespace {

using kestrel::JSOM;
using kestrel::Logger;
using kestrel::LogLevel;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

class LoggerConfigTest : public testing::Test {
 protected:
  LoggerConfigTest() { kestrel::TestAccess::resetLogging(); }
  ~LoggerConfigTest() override { kestrel::TestAccess::resetLogging(); }

  static void use(const std::string& text) {
    JSOM config;
    ASSERT_FALSE(config.fromString(text).isError()) << text;
    Logger::useConfig(config);
  }
};

TEST_F(LoggerConfigTest, EveryKeyTakesEffect) {
  Logger* const existing = Logger::getLogger("config existing");
  use(R"({"buffering": false, "level": "DEBUG", "default": "WARN",
          "categories": {"config existing": "TRACE", "config created": "OFF"}})");
  EXPECT_FALSE(Logger::isBufferingEnabled());
  EXPECT_EQ(Logger::getMasterLogLevel().getName(), "DEBUG");
  EXPECT_EQ(Logger::getDefaultLogLevel().getName(), "WARN");
  EXPECT_EQ(existing->getLevel().getName(), "TRACE");
  EXPECT_EQ(Logger::getLogger("config created")->getLevel().getName(), "OFF");
  EXPECT_EQ(Logger::getLogger("config other")->getLevel().getName(), "WARN");
}

TEST_F(LoggerConfigTest, LevelsSetBeforeTheFirstLoggerStay) {
  use(R"({"level": "ERROR", "default": "DEBUG"})");
  Logger* const first = Logger::getLogger("first after the configuration");
  EXPECT_EQ(first->getLevel().getName(), "DEBUG");
  EXPECT_EQ(Logger::getMasterLogLevel().getName(), "ERROR");
}

TEST_F(LoggerConfigTest, MissingKeysChangeNothing) {
  Logger::disableBuffering();
  Logger::setMasterLogLevel(*LogLevel::LVL_ERROR);
  Logger::setDefaultLogLevel(*LogLevel::LVL_TRACE);
  use("{}");
  EXPECT_FALSE(Logger::isBufferingEnabled());
  EXPECT_EQ(Logger::getMasterLogLevel().getName(), "ERROR");
  EXPECT_EQ(Logger::getDefaultLogLevel().getName(), "TRACE");
}

TEST_F(LoggerConfigTest, UnknownLevelNamesAreIgnoredAndCaseIsToo) {
  Logger* const logger = Logger::getLogger("config case");
  use(R"({"level": "verbose", "default": "UNKNOWN", "categories": {"config case": "loud"}})");
  EXPECT_EQ(Logger::getMasterLogLevel().getName(), "ALL");
  EXPECT_EQ(Logger::getDefaultLogLevel().getName(), "INFO");
  EXPECT_EQ(logger->getLevel().getName(), "INFO");
  use(R"({"level": "debug", "default": "Trace", "categories": {"config case": "wARN"}})");
  EXPECT_EQ(Logger::getMasterLogLevel().getName(), "DEBUG");
  EXPECT_EQ(Logger::getDefaultLogLevel().getName(), "TRACE");
  EXPECT_EQ(logger->getLevel().getName(), "WARN");
}

TEST_F(LoggerConfigTest, UnknownLevelOfACategoryMakesNoLogger) {
  class Names : public Logger::LoggerVisitor {
   public:
    void visit(Logger* logger) override { names.push_back(logger->getName()); }
    std::vector<std::string> names;
  } visitor;
  use(R"({"categories": {"config never made": "loud"}})");
  Logger::visitLoggers(visitor);
  EXPECT_THAT(visitor.names, testing::Not(testing::Contains("config never made")));
}

TEST_F(LoggerConfigTest, DefaultAppliesToLoggersThatTheCategoriesMake) {
  use(R"({"categories": {"config by category": "TRACE"}, "default": "ERROR"})");
  EXPECT_EQ(Logger::getLogger("config by category")->getLevel().getName(), "TRACE");
  EXPECT_EQ(Logger::getDefaultLogLevel().getName(), "ERROR");
}

TEST_F(LoggerConfigTest, BufferingTakesAnyBooleanFormAndIsTrueWhenUnreadable) {
  for (const char* no : {"false", "0", "0.0", "\"off\"", "\"N\""}) {
    Logger::enableBuffering();
    use(std::string("{\"buffering\": ") + no + "}");
    EXPECT_FALSE(Logger::isBufferingEnabled()) << no;
  }
  for (const char* yes : {"true", "1", "\"yes\"", "\"false\"", "null", "{}", "[]"}) {
    Logger::disableBuffering();
    use(std::string("{\"buffering\": ") + yes + "}");
    EXPECT_TRUE(Logger::isBufferingEnabled()) << yes;
  }
}

TEST_F(LoggerConfigTest, MembersOfTheWrongTypeChangeNothing) {
  use(R"({"level": 5, "default": true, "categories": ["TRACE"], "adapter": "file"})");
  use(R"({"level": null, "default": {}, "categories": {"config type": 4}, "adapter": []})");
  EXPECT_EQ(Logger::getLogger("config type")->getLevel().getName(), "INFO");
  EXPECT_EQ(Logger::getMasterLogLevel().getName(), "ALL");
  EXPECT_EQ(Logger::getDefaultLogLevel().getName(), "INFO");
}

TEST_F(LoggerConfigTest, ConfigurationsThatAreNoObjectChangeNothing) {
  StderrCapture errors;
  JSOM array;
  array.fromString("[1]");
  Logger::useConfig(array);
  Logger::useConfig(JSOM());
  Logger::useConfig(JSOM::JERROR);
  JSOM object;
  object.fromString("{}");
  Logger::useConfig(object["log"]);
  std::string text;
  object.toCompactString(text, 6);
  EXPECT_EQ(text, "{}");  // looking for the member adds nothing
  EXPECT_EQ(errors.stop(), "");
}

// Makes adapters that note their life.
class NotingFactory : public kestrel::LogAdapterFactory {
 public:
  explicit NotingFactory(std::vector<std::string>& notes)
      : LogAdapterFactory("noting"), notes_(notes) {}
  kestrel::LogAdapter* createLogAdapter(const JSOM& config) override {
    return new Adapter(notes_, JSOM(config)["name"].stringValue(JSOM::EMPTY_STRING));
  }

 private:
  class Adapter : public kestrel::LogAdapter {
   public:
    Adapter(std::vector<std::string>& notes, const std::string& name) : notes_(notes), name_(name) {
      notes_.push_back(name_ + " made");
    }
    ~Adapter() override { notes_.push_back(name_ + " destroyed"); }
    void log(const LogLevel&, std::string&, const char* message, bool) override {
      notes_.push_back(name_ + " " + message);
    }
    void log(const LogLevel& level, std::string& loggerName, const std::string& message,
             bool buffering) override {
      log(level, loggerName, message.c_str(), buffering);
    }
    void flush() override { notes_.push_back(name_ + " flushed"); }

   private:
    std::vector<std::string>& notes_;
    const std::string name_;
  };

  std::vector<std::string>& notes_;
};

TEST_F(LoggerConfigTest, SecondAdapterReplacesTheFirstWhichIsFlushedAndDestroyed) {
  std::vector<std::string> notes;
  kestrel::LogAdapterStore::Instance()->addFactory("noting", new NotingFactory(notes));
  use(R"({"adapter": {"type": "noting", "name": "A"}})");
  Logger::getLogger("config")->errorf("one");
  use(R"({"adapter": {"type": "noting", "name": "B"}})");
  Logger::getLogger("config")->errorf("two");
  EXPECT_THAT(notes, ElementsAre("A made", "A one", "B made", "A flushed", "A destroyed", "B two"));
  kestrel::TestAccess::resetLogging();
}

TEST_F(LoggerConfigTest, TypeThatNoFactoryKnowsSendsLinesToStandardOutputAgain) {
  std::vector<std::string> notes;
  kestrel::LogAdapterStore::Instance()->addFactory("noting", new NotingFactory(notes));
  use(R"({"adapter": {"type": "noting", "name": "A"}})");
  use(R"({"adapter": {"type": "no such type"}})");
  EXPECT_THAT(notes, ElementsAre("A made", "A flushed", "A destroyed"));
  StdoutCapture out;
  Logger::getLogger("config")->errorf("to standard output");
  EXPECT_THAT(out.stop(), EndsWith("[config]: ERROR to standard output\n"));
}

TEST_F(LoggerConfigTest, AdapterWithoutATypeKeepsTheOneThatIsThere) {
  std::vector<std::string> notes;
  kestrel::LogAdapterStore::Instance()->addFactory("noting", new NotingFactory(notes));
  use(R"({"adapter": {"type": "noting", "name": "A"}})");
  use(R"({"adapter": {"baseName": "B"}})");
  EXPECT_THAT(notes, ElementsAre("A made"));
  kestrel::TestAccess::resetLogging();
}

TEST_F(LoggerConfigTest, FileAdapterFromAConfigurationFile) {
  const TempDir temp;
  kestrel::LogAdapterStore::Instance()->addFactory("file", new kestrel::FileLogAdapterFactory());
  const std::string path =
      temp.write("log.conf", "{\"adapter\": {\"type\": \"file\", \"baseName\": \"" +
                                 temp.file("run.log") + "\"}}");
  Logger::loadConfig(path.c_str());
  Logger::getLogger("config")->errorf("to the file");
  Logger::flushAll();
  EXPECT_THAT(temp.read("run.log"), EndsWith(" [config]: ERROR to the file\n"));
}

TEST_F(LoggerConfigTest, FileThatCannotBeLoadedIsReported) {
  const TempDir temp;
  const std::string path = temp.file("missing.conf");
  StderrCapture errors;
  Logger::loadConfig(path.c_str());
  EXPECT_EQ(errors.stop(), "JSOM::fromFile(): could not open file '" + path + "'\n" +
                               "Could not load file `" + path + "'.\n");
}

}  // namespace
