#include "tests/support/TestAccess.h"

#include "kestrel/log/LoggerShared.h"

namespace kestrel {

void TestAccess::resetLogging() {
  Logger::setLogAdapter(nullptr);
  Logger::bufferingEnabled_ = true;
  Logger::Shared& shared = Logger::_shared();
  const ScopedLock registry(shared.registryLock);
  for (const auto& entry : shared.loggers) {
    entry.second->setLevel(*LogLevel::LVL_INFO);
  }
  const ScopedLock levels(shared.levelLock);
  shared.defaultLevel.reset();
  shared.masterLevel.reset();
  Logger::masterValue_ = LogLevel::LVL_ALL->getValue();
}

std::size_t TestAccess::fileCountOf(LinuxSelector& selector) {
  const ScopedLock guard(selector.lock_);
  return selector.entries_.size();
}

unsigned TestAccess::wakeUpCountOf(LinuxSelector& selector) {
  const ScopedLock guard(selector.lock_);
  return selector.wakeUpCount_;
}

int TestAccess::controlFdOf(LinuxSelector& selector) {
  const ScopedLock guard(selector.lock_);
  return selector.controlWriteEnd_->getFd();
}

}  // namespace kestrel
