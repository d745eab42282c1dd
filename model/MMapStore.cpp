#include "model/MMapStore.h"

#include <utility>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/json/JsomWriter.h"
#include "model/DocumentTable.h"
#include "model/ThreadStore.h"
#include "perfevents/PerfEventDataMmap.h"

namespace {

constexpr std::size_t SHORTEST_SHOWN_NAME = 4;

bool _isWithin(unsigned long long address, uint64_t start, uint64_t end) {
  return start <= address && address <= end;
}

}  // namespace

MMapStore::MMapStore() : settings_(kestrel::Singleton<PerfSettings>::Instance()) {
  kernelMap_.start = settings_->kernelStartAddress;
  kernelMap_.size = settings_->kernelEndAddress - settings_->kernelStartAddress;
  kernelMap_.name = settings_->kernelMapName;
  stackMap_.start = settings_->stackStartAddress;
  stackMap_.size = settings_->stackEndAddress - settings_->stackStartAddress;
  stackMap_.name = settings_->stackMapName;
  KeyGenerator::next();
}

MMapStore::~MMapStore() = default;

RangedItemStore& MMapStore::_storeOf(unsigned pid) {
  if (RangedItemStore* const known = _knownStoreOf(pid)) {
    return *known;
  }
  return *(stores_[pid] = std::make_unique<RangedItemStore>(true));
}

RangedItemStore* MMapStore::_knownStoreOf(unsigned pid) const {
  if (RangedItemStore* const recent = recentStores_.find(pid)) {
    return recent;
  }
  const auto found = stores_.find(pid);
  if (found == stores_.end()) {
    return nullptr;
  }
  recentStores_.remember(pid, found->second.get());
  return found->second.get();
}

MMapInfo* MMapStore::add(const perfevents::PerfEventDataMmap& record) {
  auto map = std::make_unique<MMapInfo>();
  map->copy(record);
  return _keep(record.pid(), std::move(map));
}

MMapInfo* MMapStore::add(unsigned pid, const MMapInfo& info) {
  auto map = std::make_unique<MMapInfo>();
  map->copy(info);
  return _keep(pid, std::move(map));
}

MMapInfo* MMapStore::_keep(unsigned pid, std::unique_ptr<MMapInfo> map) {
  _storeOf(pid).addRangedItem(map.get());
  return map.release();
}

MMapInfo* MMapStore::get(unsigned pid, unsigned long long address) {
  if (_isWithin(address, settings_->kernelStartAddress, settings_->kernelEndAddress)) {
    return &kernelMap_;
  }
  if (_isWithin(address, settings_->stackStartAddress, settings_->stackEndAddress)) {
    return &stackMap_;
  }
  const RangedItemStore* const store = _knownStoreOf(pid);
  return store == nullptr ? nullptr : static_cast<MMapInfo*>(store->findRangedItem(address));
}

uint32_t MMapStore::generation(unsigned pid) const {
  const RangedItemStore* const store = _knownStoreOf(pid);
  return store == nullptr ? 0 : store->generation();
}

bool MMapStore::sharesStart(unsigned pid, const MMapInfo& map) const {
  const RangedItemStore* const store = _knownStoreOf(pid);
  return store != nullptr && store->isSharedStart(map.start);
}

MMapInfo* MMapStore::getFake(unsigned pid, unsigned long long address, const std::string& name) {
  if (MMapInfo* const known = get(pid, address)) {
    return known;
  }
  KeyGenerator::next();  // kept: a key that no row shows
  auto madeUp = std::make_unique<MMapInfo>();
  _describeMadeUp(pid, address, name, *madeUp);
  return _keep(pid, std::move(madeUp));
}

void MMapStore::_describeMadeUp(unsigned pid, unsigned long long address, const std::string& name,
                                MMapInfo& madeUp) {
  MapName::SharedText beginning = _beginningOfName(name.empty() ? std::to_string(pid) : name);
  if (_isWithin(address, settings_->interruptStart64, settings_->interruptEnd64)) {
    madeUp.start = settings_->interruptStart64;
    madeUp.size = settings_->interruptEnd64 - settings_->interruptStart64;
    madeUp.name = MapName::ofInterrupts(std::move(beginning));
  } else if (_isWithin(address, settings_->interruptStart32, settings_->interruptEnd32)) {
    madeUp.start = settings_->interruptStart32;
    madeUp.size = settings_->interruptEnd32 - settings_->interruptStart32;
    madeUp.name = MapName::ofInterrupts(std::move(beginning));
  } else {
    madeUp.start = address & settings_->fakePageMask;
    madeUp.size = settings_->fakePageSize;
    madeUp.name = MapName::ofPage(std::move(beginning), madeUp.start);
  }
}

// Mostly the same process asks again.
MapName::SharedText MMapStore::_beginningOfName(const std::string& process) {
  if (recentBeginning_ == nullptr ||
      recentBeginning_->compare(1, std::string::npos, process) != 0) {
    recentBeginning_ =
        *beginnings_.insert(std::make_shared<const std::string>("{" + process)).first;
  }
  return recentBeginning_;
}

void MMapStore::writeLegacyJsonObject(kestrel::JsomWriter& writer, bool writeAll) const {
  openDocumentTable(
      writer, "libraries",
      {{"key", "db key for this process element used in other structs as a reference"},
       {"pidkey", "key or reference to the process"},
       {"name", "name of the library or function"},
       {"startAddress", "start address of this memory map"},
       {"sectionSize", "length of the memory map"}});
  for (const MMapInfo* const fixed : {&kernelMap_, &stackMap_}) {
    if (writeAll || fixed->refCount != 0) {
      _writeLegacyJsonObjectForInfo(writer, settings_->kernelPid, *fixed);
    }
  }
  ThreadStore* const threads = kestrel::Singleton<ThreadStore>::Instance();
  for (const auto& [pid, store] : stores_) {
    for (const RangedItem* const item : store->items()) {
      const auto& map = static_cast<const MMapInfo&>(*item);
      if (writeAll || map.refCount != 0) {
        _writeLegacyJsonObjectForInfo(writer, pid, map);
        ++threads->getProcess(pid)->refCount;
      }
    }
  }
  closeDocumentTable(writer);
}

void MMapStore::_writeLegacyJsonObjectForInfo(kestrel::JsomWriter& writer, unsigned pid,
                                              const MMapInfo& info) const {
  writer.startArray();
  writer.appendUnsignedLong(info.key);
  writer.appendUnsignedInt(pid);
  const std::string name = info.name;
  writer.appendString(name.size() < SHORTEST_SHOWN_NAME ? settings_->blankName : name, false);
  writer.appendUnsignedLong(info.start);
  writer.appendUnsignedLong(info.size);
  writer.endArray();
}
