// What tests may do to objects that serve a whole process, and see of a selector, and nobody else.
#pragma once

#include <cstddef>

#include "kestrel/Singleton.h"
#include "kestrel/exec/LinuxSelector.h"

namespace kestrel {

class TestAccess {
 public:
  // Destroys the single instance, so that the next use starts afresh; whoever still holds a pointer
  // to it holds a dangling one.
  template <typename T>
  static void reset() {
    T*& instance = Singleton<T>::_slot();
    delete instance;
    instance = nullptr;
  }

  // As in a process that has not logged yet: levels unset, buffering on, no adapter. Loggers stay,
  // since others hold them, at level INFO.
  static void resetLogging();

  // The files that are registered.
  static std::size_t fileCountOf(LinuxSelector& selector);
  // How often select() has returned.
  static unsigned wakeUpCountOf(LinuxSelector& selector);
  // The write end of the control pipe.
  static int controlFdOf(LinuxSelector& selector);
};

}  // namespace kestrel
