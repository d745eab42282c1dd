#include "kestrel/exec/SelfDestructingObject.h"

namespace kestrel {

void SelfDestructingObject::reserve() {
  const ScopedLock guard(referenceLock_);
  ++references_;
}

bool SelfDestructingObject::release() {
  bool last = false;
  {
    const ScopedLock guard(referenceLock_);
    last = --references_ == 0;
  }  // the lock dies with the object, so it is let go first
  if (last) {
    delete this;
  }
  return last;
}

}  // namespace kestrel
