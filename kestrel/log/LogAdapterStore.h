// The factories of log adapters, by type name. Filled at start-up, before threads run.
#pragma once

#include <string>

#include "kestrel/VectorMap.h"
#include "kestrel/log/LogAdapter.h"

namespace kestrel {

class LogAdapterStore {
 public:
  // Never null.
  static LogAdapterStore* Instance();

  // Takes ownership. A factory of that name is destroyed and replaced, unless it is the same one.
  void addFactory(const std::string& name, LogAdapterFactory* factory);
  // A new adapter, owned by the caller; null when no factory has the name.
  LogAdapter* createLogAdapter(const std::string& type, const JSOM& config);

 private:
  VectorMap<LogAdapterFactory> factories_;
};

}  // namespace kestrel
