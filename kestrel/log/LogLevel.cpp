#include "kestrel/log/LogLevel.h"

#include <new>
#include <strings.h>

namespace kestrel {

namespace {

enum Value { OFF, FATAL, ERROR, WARN, INFO, DEBUG, TRACE, UNKNOWN, ALL };

}  // namespace

LogLevel::LogLevel(const std::string& name, int value) : name_(name), value_(value) {}

// Room for the nine levels, which has its address from the start, so that the pointers have theirs.
union LogLevel::Storage {
  constexpr Storage() : none(0) {}
  ~Storage() {}  // the levels are never freed
  char none;
  LogLevel levels[ALL + 1];
};

constinit LogLevel::Storage LogLevel::storage_;

const LogLevel* LogLevel::_init() {
  static const LogLevel* const levels = new (&storage_.levels)
      LogLevel[ALL + 1]{{OFF_NAME, OFF},     {FATAL_NAME, FATAL},     {ERROR_NAME, ERROR},
                        {WARN_NAME, WARN},   {INFO_NAME, INFO},       {DEBUG_NAME, DEBUG},
                        {TRACE_NAME, TRACE}, {UNKNOWN_NAME, UNKNOWN}, {ALL_NAME, ALL}};
  return levels;
}

// First in the order of initialisation: the constructors of other static objects may log.
struct LogLevel::Maker {
  Maker() { _init(); }
};
__attribute__((init_priority(101))) const LogLevel::Maker LogLevel::maker_;

constinit const LogLevel* const LogLevel::LVL_OFF = &storage_.levels[OFF];
constinit const LogLevel* const LogLevel::LVL_FATAL = &storage_.levels[FATAL];
constinit const LogLevel* const LogLevel::LVL_ERROR = &storage_.levels[ERROR];
constinit const LogLevel* const LogLevel::LVL_WARN = &storage_.levels[WARN];
constinit const LogLevel* const LogLevel::LVL_INFO = &storage_.levels[INFO];
constinit const LogLevel* const LogLevel::LVL_DEBUG = &storage_.levels[DEBUG];
constinit const LogLevel* const LogLevel::LVL_TRACE = &storage_.levels[TRACE];
constinit const LogLevel* const LogLevel::LVL_UNKNOWN = &storage_.levels[UNKNOWN];
constinit const LogLevel* const LogLevel::LVL_ALL = &storage_.levels[ALL];

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
