/* A program that needs nothing but the C library: for targets without a C++ one. */
#include <stdlib.h>
#include <time.h>

static volatile unsigned sink;

static __attribute__((noinline)) unsigned mixSmall(unsigned value) {
  for (int i = 0; i < 2000; ++i) {
    value = value * 1664525u + 1013904223u;
  }
  return value;
}

static __attribute__((noinline)) unsigned descendSmall(unsigned depth, unsigned value) {
  const unsigned mixed = mixSmall(value + depth);
  return depth == 0 ? mixed : descendSmall(depth - 1, mixed) + 1;
}

int main(int count, char** words) {
  const double seconds = count > 1 ? strtod(words[count - 1], NULL) : 1;
  while (clock() < seconds * CLOCKS_PER_SEC) {
    sink = descendSmall(20, sink);
  }
  return 0;
}
