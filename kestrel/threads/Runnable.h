// Something that a thread can run once.
#pragma once

namespace kestrel {

class Runnable {
 public:
  virtual ~Runnable() = default;
  virtual void run() = 0;
};

}  // namespace kestrel
