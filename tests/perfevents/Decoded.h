// Attributes and records as the classes under test decode them.
#pragma once

#include <cstdint>
#include <vector>

#include "perfevents/PerfEventAttribute.h"
#include "tests/support/BodyView.h"
#include "tests/support/PerfFileBuilder.h"

inline perfevents::PerfEventAttribute decoded(const Attr& attribute,
                                              const std::vector<uint64_t>& ids = {}) {
  return perfevents::PerfEventAttribute(BodyView(attribute.structure()), ids);
}
