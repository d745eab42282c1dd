#include "listing/Options.h"

#include <cstdlib>

namespace listing {

namespace {

std::string _variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::string _belowHome(const char* path) {
  const std::string home = _variable("HOME");
  return home.empty() ? home : home + path;
}

}  // namespace

std::string Options::effectivePerfBuildIdDir() const {
  if (!perfBuildIdDir.empty()) {
    return perfBuildIdDir;
  }
  const std::string given = _variable("PERF_BUILDID_DIR");
  return !given.empty() ? given : _belowHome("/.debug");
}

std::string Options::effectiveCacheDir() const {
  if (!cacheDir.empty()) {
    return cacheDir;
  }
  const std::string caches = _variable("XDG_CACHE_HOME");
  return !caches.empty() && caches.front() == '/' ? caches + "/tracemill"
                                                  : _belowHome("/.cache/tracemill");
}

}  // namespace listing
