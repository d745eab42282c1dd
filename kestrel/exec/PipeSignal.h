// SIGPIPE, the signal that ends a process which writes to a pipe nobody reads. A program that
// writes to pipes ignores it, so that the write fails with EPIPE instead; a command that it starts
// must not inherit that, or it would go on writing where its author expected it to end.
#pragma once

namespace kestrel {

class PipeSignal {
 public:
  // Ignores SIGPIPE from now on and remembers what applied before; later calls change nothing.
  // Called once at start-up, before other threads exist.
  static void ignore();
  // Puts back what applied before ignore(); a handler becomes the default, since it belongs to the
  // program and not to the command that replaces it. Does nothing when ignore() was never called.
  // For the child between fork and exec: async-signal-safe.
  static void restore();
};

}  // namespace kestrel
