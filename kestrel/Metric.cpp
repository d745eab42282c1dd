#include "kestrel/Metric.h"

namespace kestrel {

Metric::Metric(const std::string& group, const std::string& instance, const std::string& name,
               const std::string& description)
    : group_(group), instance_(instance), name_(name), description_(description) {}

}  // namespace kestrel
