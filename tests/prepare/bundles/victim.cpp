// Works for a fifth of a second in a function of a name that no other file has.
#include <ctime>

namespace {
volatile unsigned sink = 0;
}

extern "C" __attribute__((noinline)) void bundled_work(unsigned steps) {
  for (unsigned i = 0; i < steps; ++i) {
    sink = sink * 5 + i;
  }
}

int main() {
  const std::clock_t end = std::clock() + CLOCKS_PER_SEC / 5;
  while (std::clock() < end) {
    bundled_work(100000);
  }
  return 0;
}
