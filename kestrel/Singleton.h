// The process-wide single instance of a class: created on first use, alive until the process ends.
// No locking: the conversion and its stores run on one thread.
#pragma once

namespace kestrel {

template <typename T>
class Singleton {
 public:
  // Never null. The instance is never destroyed, so no destruction order between stores has to be
  // kept.
  static T* Instance() {
    T*& instance = _slot();
    if (instance == nullptr) {
      instance = new T();
    }
    return instance;
  }

  // Destroys the instance, so that the next use starts afresh. For tests that run the converter
  // more than once in one process; whoever still holds a pointer to the instance holds a dangling
  // one.
  static void resetForTest() {
    T*& instance = _slot();
    delete instance;
    instance = nullptr;
  }

 private:
  static T*& _slot() {
    static T* instance = nullptr;
    return instance;
  }
};

}  // namespace kestrel
