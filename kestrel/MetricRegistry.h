// All metrics of the process, so that a visitor can read them at once. Borrows the metrics. Any
// thread; each operation holds the registry's lock to its end.
#pragma once

#include <functional>
#include <set>

#include "kestrel/threads/Lock.h"

namespace kestrel {

class Logger;
class Metric;

class MetricRegistry {
 public:
  class Visitor {
   public:
    virtual ~Visitor() = default;
    // True ends the walk. Must not add or remove metrics: the registry's lock is held.
    virtual bool visit(Metric* metric) = 0;
  };

  MetricRegistry();
  // Never null, never destroyed.
  static MetricRegistry* Instance();

  // A metric that is registered already stays as it is.
  void addMetric(Metric* metric);
  void removeMetric(Metric* metric);
  // In ascending order of the metrics' addresses.
  void visit(Visitor& visitor) const;

 private:
  Logger* const logger_;
  mutable RequiredLock lock_;
  std::set<Metric*, std::less<Metric*>> metrics_ KESTREL_GUARDED_BY(lock_);
};

}  // namespace kestrel
