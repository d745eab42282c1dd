#include "tests/support/TestAccess.h"

#include "kestrel/log/LoggerShared.h"

namespace kestrel {

void TestAccess::resetLogging() {
  Logger::setLogAdapter(nullptr);
  Logger::enableBuffering();
  Logger::setMasterLogLevel(*LogLevel::LVL_ALL);
  LoggerShared& shared = LoggerShared::instance();
  const ScopedLock registry(shared.registryLock);
  for (const auto& entry : shared.loggers) {
    entry.second->setLevel(*LogLevel::LVL_INFO);
  }
  const ScopedLock levels(shared.levelLock);
  shared.defaultLevel.reset();
  shared.masterLevel.reset();
}

}  // namespace kestrel
