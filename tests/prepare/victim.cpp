// A program with three functions, which prints how far the middle one is from its beginning.
#include <cstdio>

extern "C" const char __executable_start;

extern "C" __attribute__((noinline)) int function_in_front(int value) { return value * 3; }
extern "C" __attribute__((noinline)) int right_function(int value) { return value * 5; }
extern "C" __attribute__((noinline)) int function_behind(int value) { return value * 7; }

int main() {
  std::printf("%lld\n", static_cast<long long>(reinterpret_cast<const char*>(&right_function) -
                                               &__executable_start));
  return function_in_front(0) + function_behind(0);
}
