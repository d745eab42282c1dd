// All metrics of the process, so that a visitor can read them at once. Borrows them: their owners
// add and remove them. Any thread; each operation holds the registry's lock to its end.
#pragma once

#include <functional>
#include <set>

#include "kestrel/threads/Lock.h"

namespace kestrel {

class Metric;

class MetricRegistry {
 public:
  class Visitor {
   public:
    virtual ~Visitor() = default;
    // True: enough. Must not add or remove metrics: the registry's lock is held.
    virtual bool visit(Metric* metric) = 0;
  };

  MetricRegistry();
  // Never null, never destroyed.
  static MetricRegistry* Instance();

  // Does nothing for a metric that is there already.
  void addMetric(Metric* metric);
  // Does nothing for a metric that is not there.
  void removeMetric(Metric* metric);
  // Shows the metrics to the visitor, in ascending order of their addresses, until it has enough.
  void visit(Visitor& visitor) const;

 private:
  mutable RequiredLock lock_;
  std::set<Metric*, std::less<Metric*>> metrics_ KESTREL_GUARDED_BY(lock_);
};

}  // namespace kestrel
