// Reference-counted objects that delete themselves when the last reference is released. They live
// on the heap and start with no reference: whoever creates one reserves it first. Any thread.
#pragma once

#include <cstdint>

#include "kestrel/threads/Lock.h"

namespace kestrel {

class SelfDestructingResource {
 public:
  virtual ~SelfDestructingResource() = default;
  // Takes a reference.
  virtual void reserve() = 0;
  // Gives a reference back. True when it was the last one: the object is gone.
  virtual bool release() = 0;
};

class SelfDestructingObject : public SelfDestructingResource {
 public:
  SelfDestructingObject() = default;
  ~SelfDestructingObject() override = default;
  SelfDestructingObject(const SelfDestructingObject&) = delete;
  SelfDestructingObject& operator=(const SelfDestructingObject&) = delete;

  void reserve() override;
  bool release() override;

 private:
  RequiredLock referenceLock_;
  std::uint32_t references_ KESTREL_GUARDED_BY(referenceLock_) = 0;
};

}  // namespace kestrel
