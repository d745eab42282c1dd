#include "kestrel/MetricRegistry.h"

#include "kestrel/log/Logger.h"

namespace kestrel {

MetricRegistry::MetricRegistry() { Logger::getLogger("MetricRegistry"); }

MetricRegistry* MetricRegistry::Instance() {
  static MetricRegistry* const instance = new MetricRegistry();
  return instance;
}

void MetricRegistry::addMetric(Metric* metric) {
  const ScopedLock guard(lock_);
  metrics_.insert(metric);
}

void MetricRegistry::removeMetric(Metric* metric) {
  const ScopedLock guard(lock_);
  metrics_.erase(metric);
}

void MetricRegistry::visit(Visitor& visitor) const {
  const ScopedLock guard(lock_);
  for (Metric* metric : metrics_) {
    if (visitor.visit(metric)) {
      return;
    }
  }
}

}  // namespace kestrel
