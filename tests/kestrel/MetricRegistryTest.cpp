#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/Metric.h"
#include "kestrel/MetricRegistry.h"
#include "kestrel/log/Logger.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FixedMetric : public kestrel::Metric {
 public:
  explicit FixedMetric(double value = 0.0)
      : Metric("Family", "instance", "Fixed Count", "the number given."), value_(value) {}
  double collect() override { return value_; }

 private:
  double value_;
};

class Collector : public kestrel::MetricRegistry::Visitor {
 public:
  explicit Collector(std::size_t stopAfter = 100) : stopAfter_(stopAfter) {}
  bool visit(kestrel::Metric* metric) override {
    metrics.push_back(metric);
    return metrics.size() >= stopAfter_;
  }
  std::vector<kestrel::Metric*> metrics;

 private:
  std::size_t stopAfter_;
};

TEST(MetricTest, KeepsItsTexts) {
  FixedMetric metric(2.5);
  EXPECT_EQ(metric.getGroup(), "Family");
  EXPECT_EQ(metric.getInstance(), "instance");
  EXPECT_EQ(metric.getName(), "Fixed Count");
  EXPECT_EQ(metric.getDescription(), "the number given.");
  EXPECT_EQ(metric.collect(), 2.5);
}

TEST(MetricRegistryTest, VisitingAnEmptyRegistryCallsNothing) {
  const kestrel::MetricRegistry registry;
  Collector collector;
  registry.visit(collector);
  EXPECT_THAT(collector.metrics, IsEmpty());
}

TEST(MetricRegistryTest, MetricsAreVisitedInAscendingPointerOrder) {
  FixedMetric metrics[3];
  kestrel::MetricRegistry registry;
  registry.addMetric(&metrics[1]);
  registry.addMetric(&metrics[2]);
  registry.addMetric(&metrics[0]);
  Collector collector;
  registry.visit(collector);
  EXPECT_THAT(collector.metrics, ElementsAre(&metrics[0], &metrics[1], &metrics[2]));
}

TEST(MetricRegistryTest, AddingAMetricTwiceChangesNothing) {
  FixedMetric metric;
  kestrel::MetricRegistry registry;
  registry.addMetric(&metric);
  registry.addMetric(&metric);
  Collector collector;
  registry.visit(collector);
  EXPECT_THAT(collector.metrics, ElementsAre(&metric));
}

TEST(MetricRegistryTest, RemovedMetricsAreNotVisited) {
  FixedMetric metrics[2];
  kestrel::MetricRegistry registry;
  registry.addMetric(&metrics[0]);
  registry.addMetric(&metrics[1]);
  registry.removeMetric(&metrics[0]);
  registry.removeMetric(&metrics[0]);  // gone already: nothing happens
  Collector collector;
  registry.visit(collector);
  EXPECT_THAT(collector.metrics, ElementsAre(&metrics[1]));
}

TEST(MetricRegistryTest, VisitorThatReturnsTrueForTheFirstMetricSeesExactlyOne) {
  FixedMetric metrics[3];
  kestrel::MetricRegistry registry;
  for (FixedMetric& metric : metrics) {
    registry.addMetric(&metric);
  }
  Collector collector(1);
  registry.visit(collector);
  EXPECT_THAT(collector.metrics, ElementsAre(&metrics[0]));
}

TEST(MetricRegistryTest, InstanceIsOneAndHasItsLogger) {
  EXPECT_EQ(kestrel::MetricRegistry::Instance(), kestrel::MetricRegistry::Instance());
  class Finder : public kestrel::Logger::LoggerVisitor {
   public:
    void visit(kestrel::Logger* logger) override {
      found = found || logger->getName() == "MetricRegistry";
    }
    bool found = false;
  } finder;
  kestrel::Logger::visitLoggers(finder);
  EXPECT_TRUE(finder.found);
}

}  // namespace
