#include "tests/support/LogCapture.h"

#include <algorithm>
#include <iterator>
#include <ostream>
#include <utility>

#include "kestrel/log/LogAdapter.h"
#include "kestrel/log/Logger.h"
#include "kestrel/threads/Lock.h"
#include "tests/support/TestAccess.h"

void PrintTo(const LogLine& line, std::ostream* out) {
  *out << line.level << " [" << line.logger << "] " << line.message;
}

struct LogCapture::Record {
  kestrel::Lock lock;
  std::vector<LogLine> lines KESTREL_GUARDED_BY(lock);
};

class LogCapture::Adapter : public kestrel::LogAdapter {
 public:
  explicit Adapter(std::shared_ptr<Record> record) : record_(std::move(record)) {}

  void log(const kestrel::LogLevel& level, std::string& loggerName, const char* message,
           bool /*buffering*/) override {
    const kestrel::ScopedLock guard(record_->lock);
    record_->lines.push_back({level.getName(), loggerName, message});
  }
  void log(const kestrel::LogLevel& level, std::string& loggerName, const std::string& message,
           bool buffering) override {
    log(level, loggerName, message.c_str(), buffering);
  }
  void flush() override {}

 private:
  const std::shared_ptr<Record> record_;
};

namespace {

class LevelSetter : public kestrel::Logger::LoggerVisitor {
 public:
  explicit LevelSetter(const kestrel::LogLevel& level) : level_(level) {}
  void visit(kestrel::Logger* logger) override { logger->setLevel(level_); }

 private:
  const kestrel::LogLevel& level_;
};

}  // namespace

LogCapture::LogCapture(const kestrel::LogLevel& level) : record_(std::make_shared<Record>()) {
  LevelSetter setter(level);
  kestrel::Logger::visitLoggers(setter);
  kestrel::Logger::setDefaultLogLevel(level);
  kestrel::Logger::setMasterLogLevel(level);
  kestrel::Logger::setLogAdapter(new Adapter(record_));
}

LogCapture::~LogCapture() { kestrel::TestAccess::resetLogging(); }

std::vector<LogLine> LogCapture::lines() const {
  const kestrel::ScopedLock guard(record_->lock);
  return record_->lines;
}

std::vector<LogLine> LogCapture::lines(const std::string& logger) const {
  const std::vector<LogLine> all = lines();
  std::vector<LogLine> own;
  std::copy_if(all.begin(), all.end(), std::back_inserter(own),
               [&logger](const LogLine& line) { return line.logger == logger; });
  return own;
}

std::vector<std::string> LogCapture::messages(const std::string& logger,
                                              const std::string& level) const {
  std::vector<std::string> messages;
  for (const LogLine& line : lines(logger)) {
    if (line.level == level) {
      messages.push_back(line.message);
    }
  }
  return messages;
}

bool LogCapture::has(const std::string& level, const std::string& logger,
                     const std::string& message) const {
  const std::vector<LogLine> all = lines();
  return std::find(all.begin(), all.end(), LogLine{level, logger, message}) != all.end();
}

void LogCapture::clear() {
  const kestrel::ScopedLock guard(record_->lock);
  record_->lines.clear();
}
