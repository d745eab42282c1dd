#include "model/MMapStore.h"

#include <charconv>
#include <iterator>

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/json/JsomWriter.h"
#include "model/DocumentTable.h"
#include "model/ThreadStore.h"
#include "perfevents/PerfEventDataMmap.h"

namespace {

constexpr std::size_t SHORTEST_SHOWN_NAME = 4;
// Longer than the kernel's names of processes; what is shorter costs less in a copy.
constexpr std::size_t LONGEST_COPIED_NAME = 64;

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
  RangedItemStore& store = _storeOf(record.pid());
  auto* const map = new MMapInfo();
  map->copy(record);
  return _addTo(store, map);
}

MMapInfo* MMapStore::add(unsigned pid, const MMapInfo& info) {
  RangedItemStore& store = _storeOf(pid);
  auto* const map = new MMapInfo();
  map->copy(info);
  return _addTo(store, map);
}

MMapInfo* MMapStore::_addTo(RangedItemStore& store, MMapInfo* map) {
  store.addRangedItem(map);
  missedIn_ = nullptr;
  return map;
}

MMapInfo* MMapStore::get(unsigned pid, unsigned long long address) {
  if (_isWithin(address, settings_->kernelStartAddress, settings_->kernelEndAddress)) {
    return &kernelMap_;
  }
  if (_isWithin(address, settings_->stackStartAddress, settings_->stackEndAddress)) {
    return &stackMap_;
  }
  const RangedItemStore* const store = _knownStoreOf(pid);
  if (store == nullptr || (store == missedIn_ && address == missedAddress_)) {
    return nullptr;
  }
  MMapInfo* const map = _find(*store, pid, address);
  if (map == nullptr) {
    missedIn_ = store;
    missedAddress_ = address;
  }
  return map;
}

MMapInfo* MMapStore::_find(const RangedItemStore& store, unsigned pid, unsigned long long address) {
  const uint64_t number = address / REGION_SIZE;
  Region& region = regions_[(number ^ number >> 16 ^ pid * 0x9E3779B1U) % REGIONS];
  if (region.number == number && region.pid == pid && region.generation == store.generation() &&
      region.map != nullptr) {
    return region.map;
  }
  const uint64_t first = number * REGION_SIZE;
  bool isSole = false;
  auto* const map = static_cast<MMapInfo*>(
      store.findRangedItem(address, first, first + (REGION_SIZE - 1), isSole));
  if (isSole) {
    region = {number, map, pid, store.generation()};
  }
  return map;
}

uint32_t MMapStore::generation(unsigned pid) const {
  const RangedItemStore* const store = _knownStoreOf(pid);
  return store == nullptr ? 0 : store->generation();
}

MMapInfo* MMapStore::getFake(unsigned pid, unsigned long long address, const std::string& name) {
  if (MMapInfo* const known = get(pid, address)) {
    return known;
  }
  KeyGenerator::next();  // kept: a key that no row shows
  RangedItemStore& store = _storeOf(pid);
  auto* const fake = new MMapInfo();
  _describeFake(pid, address, name, *fake);
  return _addTo(store, fake);
}

void MMapStore::_describeFake(unsigned pid, unsigned long long address, const std::string& name,
                              MMapInfo& fake) {
  const std::string& process = name.empty() ? std::to_string(pid) : name;
  if (_isWithin(address, settings_->interruptStart64, settings_->interruptEnd64)) {
    fake.start = settings_->interruptStart64;
    fake.size = settings_->interruptEnd64 - settings_->interruptStart64;
    fake.name = _nameOfFake(process, "-interrupt}");
  } else if (_isWithin(address, settings_->interruptStart32, settings_->interruptEnd32)) {
    fake.start = settings_->interruptStart32;
    fake.size = settings_->interruptEnd32 - settings_->interruptStart32;
    fake.name = _nameOfFake(process, "-interrupt}");
  } else {
    fake.start = address & settings_->fakePageMask;
    fake.size = settings_->fakePageSize;
    char suffix[32] = "-";
    char* const end = std::to_chars(suffix + 1, std::end(suffix) - 1, fake.start, 16).ptr;
    *end = '}';
    fake.name = _nameOfFake(process, {suffix, static_cast<std::size_t>(end + 1 - suffix)});
  }
}

MapName MMapStore::_nameOfFake(std::string_view process, std::string_view suffix) {
  std::string text;
  text.reserve(1 + process.size() + suffix.size());
  text.append("{").append(process);
  if (text.size() <= LONGEST_COPIED_NAME) {
    return MapName(nullptr, std::move(text.append(suffix)));
  }
  auto shared = longFakeNames_.find(text);
  if (shared == longFakeNames_.end()) {
    shared = longFakeNames_.insert(std::make_shared<const std::string>(text)).first;
  }
  return MapName(*shared, std::string(suffix));
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
  writer.appendString(
      info.name.size() < SHORTEST_SHOWN_NAME ? settings_->blankName : info.name.str(), false);
  writer.appendUnsignedLong(info.start);
  writer.appendUnsignedLong(info.size);
  writer.endArray();
}
