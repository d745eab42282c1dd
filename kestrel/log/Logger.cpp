#include "kestrel/log/Logger.h"

#include <cstdio>
#include <utility>

#include "kestrel/json/JSOM.h"
#include "kestrel/log/LogAdapter.h"
#include "kestrel/log/LogAdapterStore.h"
#include "kestrel/log/LogStamp.h"
#include "kestrel/log/LoggerShared.h"

namespace kestrel {

namespace {

constexpr std::size_t MESSAGE_SIZE = 2048;

bool _isPresent(const JSOM& value) {
  return value.isNull() || value.isBoolean() || value.isNumber() || value.isString() ||
         value.isArray() || value.isObject();
}

const LogLevel& _levelIn(const JSOM& value) {
  return LogLevel::valueOf(value.stringValue(JSOM::EMPTY_STRING));
}

bool _isKnown(const LogLevel& level) {
  return level.getValue() != LogLevel::LVL_UNKNOWN->getValue();
}

}  // namespace

std::atomic<int> Logger::masterValue_{0};
std::atomic<bool> Logger::bufferingEnabled_{true};

Logger::Logger(const std::string& name) : name_(name), level_(*LogLevel::LVL_INFO) {
  LoggerShared& shared = LoggerShared::instance();
  const ScopedLock guard(shared.levelLock);
  if (!shared.defaultLevel) {
    shared.defaultLevel = *LogLevel::LVL_INFO;
  }
  if (!shared.masterLevel) {
    shared.masterLevel = *LogLevel::LVL_ALL;
    masterValue_ = LogLevel::LVL_ALL->getValue();
  }
  level_ = *shared.defaultLevel;
  levelValue_ = level_.getValue();
}

Logger* Logger::getLogger(const std::string& name) {
  LoggerShared& shared = LoggerShared::instance();
  const ScopedLock guard(shared.registryLock);
  std::unique_ptr<Logger>& logger = shared.loggers[name];
  if (!logger) {
    logger.reset(new Logger(name));
  }
  return logger.get();
}

Logger* Logger::getLogger(const char* name) { return getLogger(std::string(name)); }

void Logger::visitLoggers(LoggerVisitor& visitor) {
  LoggerShared& shared = LoggerShared::instance();
  const ScopedLock guard(shared.registryLock);
  for (const auto& entry : shared.loggers) {
    visitor.visit(entry.second.get());
  }
}

LogLevel Logger::getDefaultLogLevel() {
  LoggerShared& shared = LoggerShared::instance();
  const ScopedLock guard(shared.levelLock);
  return shared.defaultLevel.value_or(*LogLevel::LVL_INFO);
}

LogLevel Logger::getMasterLogLevel() {
  LoggerShared& shared = LoggerShared::instance();
  const ScopedLock guard(shared.levelLock);
  return shared.masterLevel.value_or(*LogLevel::LVL_INFO);
}

void Logger::setDefaultLogLevel(const LogLevel& level) {
  LoggerShared& shared = LoggerShared::instance();
  const ScopedLock guard(shared.levelLock);
  shared.defaultLevel = level;
}

void Logger::setMasterLogLevel(const LogLevel& level) {
  LoggerShared& shared = LoggerShared::instance();
  const ScopedLock guard(shared.levelLock);
  shared.masterLevel = level;
  masterValue_ = level.getValue();
}

LogLevel Logger::getLevel() const {
  const ScopedLock guard(LoggerShared::instance().levelLock);
  return level_;
}

void Logger::setLevel(const LogLevel& level) {
  const ScopedLock guard(LoggerShared::instance().levelLock);
  level_ = level;
  levelValue_ = level.getValue();
}

void Logger::enableBuffering() { bufferingEnabled_ = true; }

void Logger::disableBuffering() {
  if (bufferingEnabled_.exchange(false)) {
    flushAll();
  }
}

void Logger::flushAll() {
  if (const std::shared_ptr<LogAdapter> adapter = _adapter()) {
    adapter->flush();
  } else {
    fflush(stdout);
  }
}

std::shared_ptr<LogAdapter> Logger::_adapter() {
  LoggerShared& shared = LoggerShared::instance();
  const ScopedLock guard(shared.adapterLock);
  return shared.adapter;
}

void Logger::setLogAdapter(LogAdapter* adapter) {
  LoggerShared& shared = LoggerShared::instance();
  std::shared_ptr<LogAdapter> replaced(adapter);
  {
    const ScopedLock guard(shared.adapterLock);
    shared.adapter.swap(replaced);
  }
  if (replaced) {
    replaced->flush();
  }
}

void Logger::log(const LogLevel& level, const char* message) {
  if (const std::shared_ptr<LogAdapter> adapter = _adapter()) {
    adapter->log(level, name_, message, isBufferingEnabled());
  } else {
    _print(level, message);
  }
}

void Logger::log(const LogLevel& level, const std::string& message) {
  if (const std::shared_ptr<LogAdapter> adapter = _adapter()) {
    adapter->log(level, name_, message, isBufferingEnabled());
  } else {
    _print(level, message.c_str());
  }
}

void Logger::_print(const LogLevel& level, const char* message) const {
  const LogStamp stamp = LogStamp::now();
  printf("%s.%03ld [%s]: %s %s\n", stamp.text, stamp.milliseconds, name_.c_str(),
         level.getName().c_str(), message);
  if (!isBufferingEnabled()) {
    fflush(stdout);
  }
}

void Logger::vlog(const LogLevel& level, const char* format, va_list arguments) {
  char message[MESSAGE_SIZE];
  if (vsnprintf(message, sizeof message, format, arguments) < 0) {
    message[0] = '\0';
  }
  log(level, message);
}

void Logger::error(const char* message) {
  if (isEnabled(*LogLevel::LVL_ERROR)) {
    log(*LogLevel::LVL_ERROR, message);
  }
}

// One body for the five formatted helpers, which differ in their level alone.
#define KESTREL_LOG_FORMATTED(LEVEL)           \
  if (isEnabled(*LogLevel::LEVEL)) {           \
    va_list arguments;                         \
    va_start(arguments, format);               \
    vlog(*LogLevel::LEVEL, format, arguments); \
    va_end(arguments);                         \
  }

void Logger::errorf(const char* format, ...) { KESTREL_LOG_FORMATTED(LVL_ERROR) }
void Logger::warnf(const char* format, ...) { KESTREL_LOG_FORMATTED(LVL_WARN) }
void Logger::infof(const char* format, ...) { KESTREL_LOG_FORMATTED(LVL_INFO) }
void Logger::debugf(const char* format, ...) { KESTREL_LOG_FORMATTED(LVL_DEBUG) }
void Logger::tracef(const char* format, ...) { KESTREL_LOG_FORMATTED(LVL_TRACE) }

#undef KESTREL_LOG_FORMATTED

void Logger::useConfig(const JSOM& config) {
  if (!config.isObject()) {
    return;
  }
  JSOM members(config);  // shares the node; the index operators want a handle of their own
  if (const JSOM buffering = members["buffering"]; _isPresent(buffering)) {
    bufferingEnabled_ = buffering.booleanValue(true);
  }
  if (const LogLevel& level = _levelIn(members["default"]); _isKnown(level)) {
    setDefaultLogLevel(level);
  }
  if (const LogLevel& level = _levelIn(members["level"]); _isKnown(level)) {
    setMasterLogLevel(level);
  }
  _useCategories(members["categories"]);
  _useAdapterConfig(members["adapter"]);
}

void Logger::_useCategories(const JSOM& config) {
  if (!config.isObject()) {
    return;
  }
  JSOM categories(config);
  for (int i = categories.size() - 1; i >= 0; --i) {
    const std::string* const name = categories.key(i);
    const LogLevel& level = _levelIn(categories[i]);
    if (name != nullptr && _isKnown(level)) {
      getLogger(*name)->setLevel(level);
    }
  }
}

// A type that no factory knows gives no adapter: then lines go to standard output again.
void Logger::_useAdapterConfig(const JSOM& config) {
  if (!config.isObject()) {
    return;
  }
  const JSOM type = JSOM(config)["type"];
  if (_isPresent(type)) {
    setLogAdapter(LogAdapterStore::Instance()->createLogAdapter(
        type.stringValue(JSOM::EMPTY_STRING), config));
  }
}

void Logger::loadConfig(const char* path) {
  JSOM config;
  if (config.fromFile(path).isError()) {
    fprintf(stderr, "Could not load file `%s'.\n", path);
  } else {
    useConfig(config);
  }
}

}  // namespace kestrel
