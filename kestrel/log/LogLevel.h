// The levels of log messages: a name and a number, the higher the more verbose. The levels of the
// process are made once, before the constructors of namespace-scope variables run, and never freed.
// UNKNOWN lies between TRACE and ALL, so a logger of that level lets every message through, as
// intended.
#pragma once

#include <string>

namespace kestrel {

class LogLevel {
 public:
  LogLevel(const std::string& name, int value);
  virtual ~LogLevel() = default;
  LogLevel(const LogLevel&) = default;
  LogLevel& operator=(const LogLevel&) = default;

  const std::string& getName() const { return name_; }
  int getValue() const { return value_; }

  // Without regard to case; a text that names no level, "unknown" included, gives UNKNOWN, and so
  // does null.
  static const LogLevel& valueOf(const char* name);
  static const LogLevel& valueOf(const std::string& name);
  // 0 to 8; any other value gives UNKNOWN.
  static const LogLevel& valueOf(int value);

  static constexpr const char* OFF_NAME = "OFF";
  static constexpr const char* FATAL_NAME = "FATAL";
  static constexpr const char* ERROR_NAME = "ERROR";
  static constexpr const char* WARN_NAME = "WARN";
  static constexpr const char* INFO_NAME = "INFO";
  static constexpr const char* DEBUG_NAME = "DEBUG";
  static constexpr const char* TRACE_NAME = "TRACE";
  static constexpr const char* UNKNOWN_NAME = "UNKNOWN";
  static constexpr const char* ALL_NAME = "ALL";

  static const LogLevel* const LVL_OFF;
  static const LogLevel* const LVL_FATAL;
  static const LogLevel* const LVL_ERROR;
  static const LogLevel* const LVL_WARN;
  static const LogLevel* const LVL_INFO;
  static const LogLevel* const LVL_DEBUG;
  static const LogLevel* const LVL_TRACE;
  static const LogLevel* const LVL_UNKNOWN;
  static const LogLevel* const LVL_ALL;

 private:
  union Storage;
  struct Maker;
  // The nine levels, in ascending order of value from 0; made on the first call.
  static const LogLevel* _init();

  static Storage storage_;
  static const Maker maker_;

  std::string name_;
  int value_;
};

}  // namespace kestrel
