// What all loggers share. Not installed: only the logger itself, and tests, know it.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "kestrel/log/LogAdapter.h"
#include "kestrel/log/LogLevel.h"
#include "kestrel/log/Logger.h"
#include "kestrel/threads/Lock.h"

namespace kestrel {

// Lives until the process ends: detached threads may log while it does. Nesting: registry, then
// levels.
struct LoggerShared {
  static LoggerShared& instance() {
    static LoggerShared* const shared = new LoggerShared();
    return *shared;
  }

  RequiredLock registryLock;
  std::map<std::string, std::unique_ptr<Logger>> loggers KESTREL_GUARDED_BY(registryLock);

  RequiredLock levelLock;  // also guards the level of each logger
  std::optional<LogLevel> defaultLevel KESTREL_GUARDED_BY(levelLock);
  std::optional<LogLevel> masterLevel KESTREL_GUARDED_BY(levelLock);

  RequiredLock adapterLock;
  std::shared_ptr<LogAdapter> adapter KESTREL_GUARDED_BY(adapterLock);
};

}  // namespace kestrel
