#include "listing/Debuginfod.h"

#include <cstdlib>
#include <dlfcn.h>
#include <limits>
#include <unistd.h>

namespace listing {

namespace {

// As in <elfutils/debuginfod.h>, version 1 of the library's interface.
using Begin = void* (*)();
using End = void (*)(void* client);
using Find = int (*)(void* client, const unsigned char* id, int idSize, char** path);

std::string _fetch(const char* function, const BuildId& id) {
  void* const library = ::dlopen("libdebuginfod.so.1", RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr || id.empty() || id.size() > std::numeric_limits<int>::max()) {
    return {};
  }
  const auto begin = reinterpret_cast<Begin>(::dlsym(library, "debuginfod_begin"));
  const auto end = reinterpret_cast<End>(::dlsym(library, "debuginfod_end"));
  const auto find = reinterpret_cast<Find>(::dlsym(library, function));
  if (begin == nullptr || end == nullptr || find == nullptr) {
    return {};
  }
  void* const client = begin();
  if (client == nullptr) {
    return {};
  }
  char* path = nullptr;
  const int descriptor = find(client, id.data(), static_cast<int>(id.size()), &path);
  std::string found;
  if (descriptor >= 0) {
    ::close(descriptor);
    found = path != nullptr ? path : "";
  }
  std::free(path);
  end(client);
  return found;
}

}  // namespace

bool Debuginfod::isWanted() {
  const char* urls = std::getenv("DEBUGINFOD_URLS");
  return urls != nullptr && *urls != '\0';
}

std::string Debuginfod::fetchExecutable(const BuildId& id) {
  return _fetch("debuginfod_find_executable", id);
}

std::string Debuginfod::fetchDebugFile(const BuildId& id) {
  return _fetch("debuginfod_find_debuginfo", id);
}

}  // namespace listing
