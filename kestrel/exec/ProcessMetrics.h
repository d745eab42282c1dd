// The counters of the process runner, kept as metrics of the group "LinuxSimpleExec".
#pragma once

#include "kestrel/Metric.h"

namespace kestrel {

// "Execution Count": children that a watcher has waited for.
class LinuxSimpleExecCountMetric : public Metric {
 public:
  LinuxSimpleExecCountMetric();
  double collect() override;
};

// "Instance Count": process runners that exist.
class SimpleInstanceCountMetric : public Metric {
 public:
  SimpleInstanceCountMetric();
  double collect() override;
};

// "Error Count", which shows the execution count as well.
class SimpleErrorCountMetric : public Metric {
 public:
  SimpleErrorCountMetric();
  double collect() override;
};

// Registers one metric of each class for the life of the process; later calls do nothing. Any
// thread.
void registerProcessMetrics();

}  // namespace kestrel
