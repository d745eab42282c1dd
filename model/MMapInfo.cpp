#include "model/MMapInfo.h"

#include <string>
#include <utility>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "model/DeletedSuffix.h"
#include "perfevents/PerfEventDataMmap.h"

void MMapInfo::copy(const perfevents::PerfEventDataMmap& record) {
  const PerfSettings* const settings = kestrel::Singleton<PerfSettings>::Instance();
  start = record.addr();
  size = record.len();
  pgoff = record.pgoff();
  loadBias = 0;
  symbolTable = nullptr;
  if (start >= settings->sharedLibraryBase &&
      (start < settings->kernelStartAddress || start > settings->kernelEndAddress)) {
    loadBias = start - pgoff;
  }
  std::string text = record.filename();
  cutDeletedSuffix(text);
  name = std::move(text);
}

void MMapInfo::copy(const MMapInfo& other) {
  start = other.start;
  size = other.size;
  pgoff = other.pgoff;
  loadBias = other.loadBias;
  name = other.name;
  symbolTable = nullptr;
}
