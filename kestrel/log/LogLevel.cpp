#include "kestrel/log/LogLevel.h"

#include <strings.h>

namespace kestrel {

namespace {

enum Value { OFF, FATAL, ERROR, WARN, INFO, DEBUG, TRACE, UNKNOWN, ALL };

}  // namespace

LogLevel::LogLevel(const std::string& name, int value) : name_(name), value_(value) {}

const LogLevel* LogLevel::_init() {
  static const LogLevel* const levels =
      new LogLevel[ALL + 1]{{OFF_NAME, OFF},     {FATAL_NAME, FATAL},     {ERROR_NAME, ERROR},
                            {WARN_NAME, WARN},   {INFO_NAME, INFO},       {DEBUG_NAME, DEBUG},
                            {TRACE_NAME, TRACE}, {UNKNOWN_NAME, UNKNOWN}, {ALL_NAME, ALL}};
  return levels;
}

const LogLevel* const LogLevel::LVL_OFF = _init() + OFF;
const LogLevel* const LogLevel::LVL_FATAL = _init() + FATAL;
const LogLevel* const LogLevel::LVL_ERROR = _init() + ERROR;
const LogLevel* const LogLevel::LVL_WARN = _init() + WARN;
const LogLevel* const LogLevel::LVL_INFO = _init() + INFO;
const LogLevel* const LogLevel::LVL_DEBUG = _init() + DEBUG;
const LogLevel* const LogLevel::LVL_TRACE = _init() + TRACE;
const LogLevel* const LogLevel::LVL_UNKNOWN = _init() + UNKNOWN;
const LogLevel* const LogLevel::LVL_ALL = _init() + ALL;

const LogLevel& LogLevel::valueOf(const char* name) {
  constexpr Value ORDER[] = {FATAL, ERROR, WARN, INFO, DEBUG, TRACE, ALL, OFF};
  const LogLevel* const levels = _init();
  for (const Value value : ORDER) {
    if (name != nullptr && strcasecmp(levels[value].name_.c_str(), name) == 0) {
      return levels[value];
    }
  }
  return levels[UNKNOWN];
}

const LogLevel& LogLevel::valueOf(const std::string& name) { return valueOf(name.c_str()); }

const LogLevel& LogLevel::valueOf(int value) {
  const LogLevel* const levels = _init();
  return value >= OFF && value <= ALL ? levels[value] : levels[UNKNOWN];
}

}  // namespace kestrel
