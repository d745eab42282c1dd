// A run of its own for tests of runs that share a cache directory: asks for one symbol list.
//
//   list_one_file CACHE_DIRECTORY LISTER FILE
#include <string>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "symbols/SymbolCache.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    return 2;
  }
  PerfSettings* const settings = kestrel::Singleton<PerfSettings>::Instance();
  settings->symbolCacheDir = argv[1];
  settings->symbolListCommand = argv[2];
  std::string list;
  return SymbolCache().getSampleDataFile(argv[3], list) ? 0 : 1;
}
