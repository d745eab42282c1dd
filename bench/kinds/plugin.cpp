// A plugin of bench/kinds/workload.cpp. Compiled several times with another PLUGIN each, so that
// the same addresses in two files belong to functions of different names.
#define JOINED(first, second) first##second
#define NAMED(first, second) JOINED(first, second)

namespace {

__attribute__((noinline)) unsigned long NAMED(innerOf, PLUGIN)(unsigned long value) {
  for (int i = 0; i < 3000; ++i) {
    value = value * 6364136223846793005ul + PLUGIN_NUMBER;
  }
  return value;
}

__attribute__((noinline)) unsigned long NAMED(outerOf, PLUGIN)(unsigned long value) {
  return NAMED(innerOf, PLUGIN)(value) + NAMED(innerOf, PLUGIN)(value + 1);
}

}  // namespace

extern "C" unsigned long pluginWork(unsigned long value) { return NAMED(outerOf, PLUGIN)(value); }
