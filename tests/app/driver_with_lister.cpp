// tracemill with a symbol list command of the caller's: driver_with_lister COMMAND ARGUMENTS...
// The program itself has no option for it; tests that need a fake lister run this instead.
#include "app/Driver.h"
#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    return 2;
  }
  kestrel::Singleton<PerfSettings>::Instance()->symbolListCommand = argv[1];
  argv[1] = argv[0];
  return Driver().run(argc - 1, argv + 1);
}
