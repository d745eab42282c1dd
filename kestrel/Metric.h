// A named counter that can be read at any time. The owner registers it with the MetricRegistry and
// removes it there before it dies; the destructor does not.
#pragma once

#include <string>

namespace kestrel {

class Metric {
 public:
  Metric(const std::string& group, const std::string& instance, const std::string& name,
         const std::string& description);
  virtual ~Metric() = default;
  Metric(const Metric&) = delete;
  Metric& operator=(const Metric&) = delete;

  // The current value. Called from any thread, with the registry's lock held when a visitor asks.
  virtual double collect() = 0;

  const std::string& getGroup() const { return group_; }        // the component family
  const std::string& getInstance() const { return instance_; }  // empty for process-wide counters
  const std::string& getName() const { return name_; }
  const std::string& getDescription() const { return description_; }  // one sentence

 private:
  const std::string group_;
  const std::string instance_;
  const std::string name_;
  const std::string description_;
};

}  // namespace kestrel
