// Memory maps by process: filled from MMAP records in pass 1, asked for every sampled address in
// pass 2. Addresses are run-time addresses, sizes are bytes. Maps are only added, never removed or
// merged. Reached through kestrel::Singleton<MMapStore>::Instance(). Owns every map it hands out,
// until it is destroyed. One thread only.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "model/MMapInfo.h"
#include "model/RangedItemStore.h"
#include "model/RecentlyUsed.h"

namespace kestrel {
class JsomWriter;
}
namespace perfevents {
class PerfEventDataMmap;
}
struct PerfSettings;

class MMapStore {
 public:
  // Draws three keys: the kernel map's, the stack map's, and one that stays unused (kept: documents
  // carry the keys).
  MMapStore();
  MMapStore(const MMapStore&) = delete;
  MMapStore& operator=(const MMapStore&) = delete;
  virtual ~MMapStore();

  // Stores a new map. Overlaps stay as they are: a remap simply adds another. Never null.
  MMapInfo* add(const perfevents::PerfEventDataMmap& record);
  MMapInfo* add(unsigned pid, const MMapInfo& info);
  // The map that holds `address` in `pid`; the settings' kernel and stack ranges win over the
  // process's own. Null if none.
  MMapInfo* get(unsigned pid, unsigned long long address);
  // As get(); where nothing is mapped, a map is made up: the interrupt vectors' range or the 64 KiB
  // page around `address`, named after `name` (the pid when that is empty). It is stored, so that
  // its page is found from then on; the last address of an interrupt range is not inside it (kept)
  // and makes another each time. Never null.
  MMapInfo* getFake(unsigned pid, unsigned long long address, const std::string& name);

  // For whoever keeps what get() found: see RangedItemStore::generation().
  uint32_t generation(unsigned pid) const;
  bool sharesStart(unsigned pid, const MMapInfo& map) const;

  // The map of the kernel, in every process. The driver moves it to the range of the kernel's
  // symbol list.
  MMapInfo& kernelMap() { return kernelMap_; }

  // Writes the "libraries" member into the writer's open object; only maps in use unless
  // `writeAll`. Every row written for a process counts as a use of the process, so write
  // "processes" later.
  void writeLegacyJsonObject(kestrel::JsomWriter& writer, bool writeAll) const;
  // One row.
  void _writeLegacyJsonObjectForInfo(kestrel::JsomWriter& writer, unsigned pid,
                                     const MMapInfo& info) const;

 private:
  RangedItemStore& _storeOf(unsigned pid);             // created on first use
  RangedItemStore* _knownStoreOf(unsigned pid) const;  // null if there is none
  MapName::SharedText _beginningOfName(const std::string& process);
  MMapInfo* _keep(unsigned pid, std::unique_ptr<MMapInfo> map);
  void _describeMadeUp(unsigned pid, unsigned long long address, const std::string& name,
                       MMapInfo& madeUp);

  std::map<uint32_t, std::unique_ptr<RangedItemStore>> stores_;  // key: pid
  mutable RecentlyUsed<RangedItemStore> recentStores_;
  std::set<MapName::SharedText, MapName::ByText> beginnings_;  // of made-up names
  MapName::SharedText recentBeginning_;
  MMapInfo kernelMap_;
  MMapInfo stackMap_;
  const PerfSettings* settings_;
};
