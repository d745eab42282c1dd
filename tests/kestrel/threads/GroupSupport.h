// Runners to watch, and the metrics of thread groups, for the tests of this folder.
#pragma once

#include <atomic>
#include <functional>
#include <latch>
#include <string>
#include <thread>
#include <utility>

#include "kestrel/Metric.h"
#include "kestrel/MetricRegistry.h"
#include "kestrel/threads/Runnable.h"

class Task : public kestrel::Runnable {
 public:
  explicit Task(std::function<void()> work) : work_(std::move(work)) {}
  void run() override { work_(); }

 private:
  const std::function<void()> work_;
};

// Tells whether it ran and when it is destroyed.
class WatchedTask : public kestrel::Runnable {
 public:
  WatchedTask(std::atomic<int>& runs, std::atomic<int>& destroyed)
      : runs_(runs), destroyed_(destroyed) {}
  ~WatchedTask() override { ++destroyed_; }
  void run() override { ++runs_; }

 private:
  std::atomic<int>& runs_;
  std::atomic<int>& destroyed_;
};

// A task that can be held while it runs.
struct Held {
  std::latch begun{1};
  std::latch end{1};
  Task task{[this] {
    begun.count_down();
    end.wait();
  }};
};

// -1 when no such metric is registered.
inline double metricOf(const std::string& instance, const std::string& name) {
  class Reader : public kestrel::MetricRegistry::Visitor {
   public:
    Reader(const std::string& instance, const std::string& name)
        : instance_(instance), name_(name) {}
    bool visit(kestrel::Metric* metric) override {
      if (metric->getGroup() == "Thread Group" && metric->getInstance() == instance_ &&
          metric->getName() == name_) {
        value = metric->collect();
        return true;
      }
      return false;
    }
    double value = -1.0;

   private:
    const std::string instance_;
    const std::string name_;
  } reader(instance, name);
  kestrel::MetricRegistry::Instance()->visit(reader);
  return reader.value;
}

inline void awaitMetric(const std::string& instance, const std::string& name, double value) {
  while (metricOf(instance, name) != value) {
    std::this_thread::yield();
  }
}
