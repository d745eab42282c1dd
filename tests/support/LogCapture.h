// Catches every log line for a scope, so that a test can list them. The loggers that exist, the
// default and the master level are set to one level meanwhile; afterwards logging is as in a fresh
// process (TestAccess::resetLogging). Lines may come from any thread.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/log/LogLevel.h"

struct LogLine {
  std::string level;
  std::string logger;
  std::string message;

  bool operator==(const LogLine&) const = default;
};

// How a test's failure shows a line: "ERROR [main] text".
void PrintTo(const LogLine& line, std::ostream* out);

class LogCapture {
 public:
  explicit LogCapture(const kestrel::LogLevel& level = *kestrel::LogLevel::LVL_ALL);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // In the order in which they were logged.
  std::vector<LogLine> lines() const;
  // Those of one logger.
  std::vector<LogLine> lines(const std::string& logger) const;
  // The messages of one logger at one level.
  std::vector<std::string> messages(const std::string& logger, const std::string& level) const;
  // Whether a line with this very message was logged.
  bool has(const std::string& level, const std::string& logger, const std::string& message) const;
  // Forgets the lines so far.
  void clear();

 private:
  struct Record;
  class Adapter;

  const std::shared_ptr<Record> record_;  // shared with the adapter, which a late line keeps alive
};
