// Files by their build id from the servers that the environment variable DEBUGINFOD_URLS names,
// through the client library of elfutils, which keeps them in its own cache
// (~/.cache/debuginfod_client). For child processes: it may wait as long as DEBUGINFOD_TIMEOUT
// says. The library is loaded when it is first needed, and nothing is fetched without it.
#pragma once

#include <string>

#include "listing/BuildId.h"

namespace listing {

class Debuginfod {
 public:
  static bool isWanted();  // DEBUGINFOD_URLS is set and not empty
  // Paths in the client's cache; empty: no server has it.
  static std::string fetchExecutable(const BuildId& id);
  static std::string fetchDebugFile(const BuildId& id);
};

}  // namespace listing
