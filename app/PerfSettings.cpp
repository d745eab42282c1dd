#include "app/PerfSettings.h"

#include <cinttypes>
#include <cstdio>

PerfSettings::PerfSettings() {
  char name[64];
  std::snprintf(name, sizeof(name), "{stack:%08" PRIx64 "-%08" PRIx64 "}", stackStartAddress,
                stackEndAddress);
  stackMapName = name;
}
