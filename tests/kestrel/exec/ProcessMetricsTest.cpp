#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/MetricRegistry.h"
#include "kestrel/exec/ProcessMetrics.h"
#include "tests/kestrel/exec/ExecSupport.h"

namespace {

using kestrel::Metric;
using kestrel::MetricRegistry;
using testing::UnorderedElementsAre;

std::vector<Metric*> processMetrics() {
  class Collector : public MetricRegistry::Visitor {
   public:
    bool visit(Metric* metric) override {
      if (metric->getGroup() == "LinuxSimpleExec") {
        found.push_back(metric);
      }
      return false;
    }
    std::vector<Metric*> found;
  };
  Collector collector;
  MetricRegistry::Instance()->visit(collector);
  return collector.found;
}

std::map<std::string, double> values() {
  std::map<std::string, double> all;
  for (Metric* metric : processMetrics()) {
    all[metric->getName()] = metric->collect();
  }
  return all;
}

void run(const std::vector<std::string>& command) {
  const ExecPtr exec = makeExec();
  exec->exec(command, nullptr);
  exec->waitTilDone(0);
}

TEST(ProcessMetricsTest, ThreeMetricsAreRegisteredOnce) {
  makeExec();
  makeExec();
  std::vector<std::string> found;
  for (const Metric* metric : processMetrics()) {
    found.push_back(metric->getInstance() + "|" + metric->getName() + "|" +
                    metric->getDescription());
  }
  EXPECT_THAT(found,
              UnorderedElementsAre("|Execution Count|the total number times processes were forked.",
                                   "|Instance Count|the total number active instances.",
                                   "|Error Count|the total number times execution failed."));
}

TEST(ProcessMetricsTest, TheErrorCountShowsTheExecutionCount) {
  makeExec();
  const double before = values()["Execution Count"];
  run({"/no/such/command"});
  run({"true"});
  run({"true"});
  auto after = values();
  EXPECT_EQ(after["Execution Count"], before + 3);
  EXPECT_EQ(after["Error Count"], after["Execution Count"]);
}

TEST(ProcessMetricsTest, ACommandThatWasNeverStartedIsNoExecution) {
  makeExec();
  const double before = values()["Execution Count"];
  run({});
  EXPECT_EQ(values()["Execution Count"], before);
}

TEST(ProcessMetricsTest, TheInstanceCountFollowsTheObjects) {
  makeExec();
  const double before = values()["Instance Count"];
  {
    const ExecPtr first = makeExec();
    const ExecPtr second = makeExec();
    EXPECT_EQ(values()["Instance Count"], before + 2);
  }
  EXPECT_EQ(values()["Instance Count"], before);
}

}  // namespace
