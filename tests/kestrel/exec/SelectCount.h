// What can be seen of a selector's loop from outside: how often it wakes up. The test program's own
// select(2), which counts, stands before that of the C library.
#pragma once

class SelectCount {
 public:
  SelectCount() : before_(_returns()) {}
  // How often a call has returned since construction, on any thread.
  unsigned count() const { return _returns() - before_; }

 private:
  static unsigned _returns();

  unsigned before_;
};
