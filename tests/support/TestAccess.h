// What tests may do to objects that serve a whole process.
#pragma once

#include "kestrel/Singleton.h"

namespace kestrel {

class TestAccess {
 public:
  // Destroys the single instance, so that the next use starts afresh; whoever still holds a pointer
  // to it holds a dangling one.
  template <typename T>
  static void reset() {
    struct Opened : Singleton<T> {
      using Singleton<T>::_slot;
    };
    T*& instance = Opened::_slot();
    delete instance;
    instance = nullptr;
  }

  // As in a process that has not logged yet: levels unset, buffering on, no adapter. Loggers stay,
  // since others hold them, at level INFO.
  static void resetLogging();
};

}  // namespace kestrel
