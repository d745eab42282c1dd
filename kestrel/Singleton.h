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

 protected:
  static T*& _slot() {
    static T* instance = nullptr;
    return instance;
  }
};

}  // namespace kestrel
