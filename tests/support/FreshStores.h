// The process-wide stores as in a fresh process, for tests that use more than one of them or use
// them more than once.
#pragma once

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "model/KeyGenerator.h"
#include "model/MMapStore.h"
#include "model/ThreadStore.h"
#include "symbols/SourceFileStore.h"
#include "symbols/SymbolCache.h"
#include "symbols/SymbolTableStore.h"
#include "tests/support/TestAccess.h"

// Settings, threads, maps and keys.
inline void makeModelAnew() {
  kestrel::TestAccess::reset<MMapStore>();
  kestrel::TestAccess::reset<ThreadStore>();
  kestrel::TestAccess::reset<PerfSettings>();
  KeyGenerator::counter = 0;
}

// These, and everything about symbols: first what points into others.
inline void makeStoresAnew() {
  kestrel::TestAccess::reset<SourceFileStore>();
  kestrel::TestAccess::reset<SymbolTableStore>();
  kestrel::TestAccess::reset<SymbolCache>();
  makeModelAnew();
}

// As above, with settings by which no file of this machine is looked at: mapped files are searched
// below `folder`, where there are none, and no lister can be run.
inline PerfSettings& makeStoresAnewIn(const std::string& folder) {
  makeStoresAnew();
  PerfSettings& settings = *kestrel::Singleton<PerfSettings>::Instance();
  settings.onTargetMode = false;
  settings.symbolFileSeachPath = folder + "/root";
  settings.symbolCacheDir = folder + "/cache";
  settings.symbolListCommand = "/nonexistent/lister";
  return settings;
}
