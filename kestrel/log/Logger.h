// Named loggers with a level each, filtered a second time by the master level of the process. Lines
// go to standard output, or to the log adapter once one is configured:
//
//   Mar 07 14:03:09.042 [PerfRecordFileReader]: WARN message
//
// Any thread may log and get loggers; a line is written with one formatted print and is never torn.
// Loggers are never freed. Configure before threads run: what they log meanwhile may go either way.
#pragma once

#include <atomic>
#include <cstdarg>
#include <memory>
#include <string>

#include "kestrel/log/LogLevel.h"
#include "kestrel/threads/Lock.h"

namespace kestrel {

class JSOM;
class LogAdapter;

class Logger {
 public:
  class LoggerVisitor {
   public:
    virtual ~LoggerVisitor() = default;
    // Must not get loggers: the registry's lock is held.
    virtual void visit(Logger* logger) = 0;
  };

  virtual ~Logger() = default;
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // The logger of that name, made with the current default level if there is none. Never null.
  static Logger* getLogger(const std::string& name);
  static Logger* getLogger(const char* name);
  // In ascending order of names.
  static void visitLoggers(LoggerVisitor& visitor);

  // INFO while unset. The first logger sets what is unset by then: the default to INFO, the master
  // to ALL.
  static LogLevel getDefaultLogLevel();
  static LogLevel getMasterLogLevel();
  // The default is for loggers made later; those that exist keep their level.
  static void setDefaultLogLevel(const LogLevel& level);
  static void setMasterLogLevel(const LogLevel& level);

  // Without buffering every line is flushed.
  static void enableBuffering();
  static void disableBuffering();
  static bool isBufferingEnabled() { return bufferingEnabled_.load(std::memory_order_relaxed); }
  static void flushAll();

  // Applies the "log" member of a configuration: "buffering", "default", "level", "categories" and
  // "adapter", each optional. A name that is no level changes nothing.
  static void useConfig(const JSOM& config);
  // Applies a file whose whole document is such a member.
  static void loadConfig(const char* path);

  // Whether lines go to standard output: there is no adapter.
  static bool usesStandardOutput() { return _adapter() == nullptr; }
  // Takes ownership; null sends lines to standard output again. The adapter so far is flushed and
  // destroyed, once no thread writes through it any more.
  static void setLogAdapter(LogAdapter* adapter);

  const std::string& getName() const { return name_; }
  LogLevel getLevel() const;
  void setLevel(const LogLevel& level);

  // Whether a message of this level passes both filters. For callers to whom the arguments are
  // dear.
  bool isEnabled(const LogLevel& level) const { return _admits(level.getValue()); }

  // Write one line, whatever the levels.
  void log(const LogLevel& level, const char* message);
  void log(const LogLevel& level, const std::string& message);
  // As above, formatted; a message over 2047 bytes is cut.
  void vlog(const LogLevel& level, const char* format, va_list arguments)
      __attribute__((format(printf, 3, 0)));

  // Write one line when both the logger's level and the master level admit it.
  void error(const char* message);
  void errorf(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void warnf(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void infof(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void debugf(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void tracef(const char* format, ...) __attribute__((format(printf, 2, 3)));

 private:
  explicit Logger(const std::string& name);
  static std::shared_ptr<LogAdapter> _adapter();
  void _print(const LogLevel& level, const char* message) const;  // to standard output
  static void _useAdapterConfig(const JSOM& config);
  static void _useCategories(const JSOM& config);

  bool _admits(int value) const {
    return levelValue_.load(std::memory_order_relaxed) >= value &&
           masterValue_.load(std::memory_order_relaxed) >= value;
  }

  // Copies of the levels' numbers, so that filtering takes no lock.
  static std::atomic<int> masterValue_;
  static std::atomic<bool> bufferingEnabled_;

  std::string name_;
  LogLevel level_;  // guarded by the levels' lock of the shared state
  std::atomic<int> levelValue_;
};

}  // namespace kestrel
