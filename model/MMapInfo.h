// One memory map: a file mapped into a process, one of the two fixed maps (kernel, stack), or a map
// made up for addresses that no record covers. Run-time addresses, sizes and offsets in bytes.
#pragma once

#include <cstdint>

#include "model/MapName.h"
#include "model/Pooled.h"
#include "model/RangedItem.h"

namespace perfevents {
class PerfEventDataMmap;
}
class SymbolTable;

class MMapInfo : public RangedItem, public Pooled<MMapInfo> {
 public:
  // Takes the facts of a record. Maps from the settings' shared library base on, the kernel's range
  // excepted, get a load bias. A " (deleted)" in the name and what follows is cut off.
  void copy(const perfevents::PerfEventDataMmap& record);
  // Takes range, offset, bias and name of `other`; key and use count stay this map's own.
  void copy(const MMapInfo& other);

  uint64_t pgoff = 0;
  uint64_t loadBias = 0;  // to be subtracted from a run-time address: gives that of the symbol list
  uint32_t refCount = 0;  // references made while writing samples
  MapName name;
  // Borrowed; set when the map is first resolved, reset by both copies.
  SymbolTable* symbolTable = nullptr;
};
