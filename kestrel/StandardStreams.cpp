#include "kestrel/StandardStreams.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace kestrel {

void StandardStreams::reserveDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) == -1) {
      // The lowest free descriptor is this one. Output must not vanish silently: opened for reading
      // only.
      const int opened = open("/dev/null", O_RDONLY);
      static_cast<void>(opened);  // nothing can be done, and nothing said, without it
    }
  }
}

bool StandardStreams::flushOutput() {
  const bool isFlushed = std::fflush(stdout) == 0;
  return std::ferror(stdout) == 0 && isFlushed;
}

void StandardStreams::writeOutputInBlocks() {
  constexpr std::size_t BLOCK_SIZE = 128 * 1024;
  static char block[BLOCK_SIZE];
  std::fflush(stdout);
  std::setvbuf(stdout, block, _IOFBF, sizeof(block));
}

}  // namespace kestrel
