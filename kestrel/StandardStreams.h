// Standard input, output and error of the process.
#pragma once

namespace kestrel {

class StandardStreams {
 public:
  // Occupies those of the descriptors 0, 1 and 2 that are closed, so that no file opened later
  // takes their place and is written to as standard output. Writing to an occupied one fails, as it
  // does on a closed one. Once, at start-up.
  static void reserveDescriptors();
  // Hands everything printed so far to the system. False when any of it, now or before, could not
  // be written.
  static bool flushOutput();
  // Has standard output written in large pieces, lines and terminals or not. Before much was
  // written to it.
  static void writeOutputInBlocks();
};

}  // namespace kestrel
