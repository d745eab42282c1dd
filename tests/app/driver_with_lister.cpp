// tracemill with a symbol list command of the caller's: driver_with_lister COMMAND ARGUMENTS...
// The program itself has no option for it; tests that need a fake lister run this instead.
#include <iostream>
#include <new>

#include "app/Driver.h"
#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    return 2;
  }
  try {
    kestrel::Singleton<PerfSettings>::Instance()->symbolListCommand = argv[1];
  } catch (const std::bad_alloc&) {
    std::cerr << "no memory for the lister's name" << std::endl;
    return 1;
  }
  argv[1] = argv[0];
  return Driver().run(argc - 1, argv + 1);
}
