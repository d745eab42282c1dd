#include "tests/app/PlainConversion.h"

#include <cinttypes>
#include <cstdio>
#include <memory>
#include <utility>

namespace {

constexpr uint64_t STACK_START = 0xB0000000;
constexpr uint64_t STACK_END = 0xBEFFFFFF;
constexpr uint64_t LIBRARY_BASE = 0x40000000;
constexpr uint64_t INTERRUPT_START_32 = 0xFFFF0000;
constexpr uint64_t INTERRUPT_END_32 = 0xFFFFFFFF;
constexpr uint64_t INTERRUPT_START_64 = 0xFFFFFFFFFFFF0000;
constexpr uint64_t PAGE_MASK = 0xFFFFFFFFFFFF0000;
constexpr uint64_t PAGE_SIZE = 0x10000;
constexpr uint64_t NO_IP = ~uint64_t{0};

std::string withoutDeleted(const std::string& name) {
  return name.substr(0, name.find(" (deleted)"));
}

// Names of threads keep printable ASCII only.
std::string printable(const std::string& name) {
  std::string kept;
  for (const char byte : name) {
    if (' ' <= byte && byte <= '~') {
      kept += byte;
    }
  }
  return kept;
}

}  // namespace

PlainConversion::PlainConversion(const PlainSettings& settings,
                                 std::map<std::string, std::vector<PlainSymbol>> files)
    : settings_(settings), files_(std::move(files)), document_(settings.whitespace) {
  threads_[0] = {0, 0, 0, "kernel"};
  threads_[1] = {1, 1, 0, "*init*"};
  locations_[""] = "";
  tables_[""];
  kernelMap_.start = kernelStart_;
  kernelMap_.size = kernelEnd_ - kernelStart_;
  kernelMap_.name = "kernel";
  kernelMap_.key = nextKey_++;
  stackMap_.start = STACK_START;
  stackMap_.size = STACK_END - STACK_START;
  stackMap_.name = "{stack:b0000000-beffffff}";
  stackMap_.key = nextKey_++;
  nextKey_++;
  _loadKernel();
  if (settings_.clockStart != 0) {
    dataStart_ = settings_.base + (settings_.clockStart - settings_.offset) / settings_.skew;
    reference_ = settings_.clockStart;
    if (settings_.duration > 0) {
      const double clockEnd = settings_.clockStart + settings_.duration;
      dataEnd_ = settings_.base + (clockEnd - settings_.offset) / settings_.skew;
    }
  }
}

void PlainConversion::_loadKernel() {
  locations_["kernel"] = "kernel";
  files_["kernel"] = settings_.kernel;
  const PlainTable& table = _tableOf(kernelMap_);
  for (const auto& function : table.functions.items) {
    if (function->name == "_text") {
      const PlainFunction& last = *table.functions.items.back();
      kernelStart_ = function->start;
      kernelEnd_ = last.start + last.size;
      kernelMap_.start = kernelStart_;
      kernelMap_.size = kernelEnd_ - kernelStart_ + 1;
      return;
    }
  }
}

void PlainConversion::convert(const std::vector<Event>& events) {
  for (const Event& event : events) {
    if (const auto* comm = std::get_if<CommEvent>(&event)) {
      _addComm(*comm);
    } else if (const auto* map = std::get_if<MapEvent>(&event)) {
      _addMap(*map);
    }
  }
  document_.open('{').openTable("samples");
  for (const Event& event : events) {
    if (const auto* sample = std::get_if<SampleFields>(&event)) {
      _writeSample(*sample);
    }
  }
  document_.closeTable();
  _lookBack();
  _writeLibraries();
  _writeFunctions();
  _writeProcesses();
  _writeFiles();
  document_.close('}');
}

PlainThread& PlainConversion::_threadOf(uint32_t pid, uint32_t tid) {
  return threads_.try_emplace(tid, PlainThread{pid, tid, 0, ""}).first->second;
}

void PlainConversion::_addComm(const CommEvent& comm) {
  _threadOf(comm.pid, comm.tid).name = withoutDeleted(printable(comm.name));
}

void PlainConversion::_addMap(const MapEvent& record) {
  auto map = std::make_unique<PlainMap>();
  map->key = nextKey_++;
  map->start = record.start;
  map->size = record.size;
  map->name = withoutDeleted(record.name);
  if (map->start >= LIBRARY_BASE && (map->start < kernelStart_ || map->start > kernelEnd_)) {
    map->symbolBase = map->start - record.pageOffset;
  }
  maps_[record.pid].add(std::move(map));
}

PlainMap* PlainConversion::mapAt(uint32_t pid, uint64_t address) {
  if (kernelStart_ <= address && address <= kernelEnd_) {
    return &kernelMap_;
  }
  if (STACK_START <= address && address <= STACK_END) {
    return &stackMap_;
  }
  const auto store = maps_.find(pid);
  return store == maps_.end() ? nullptr : store->second.find(address);
}

PlainMap& PlainConversion::_madeUpAt(uint32_t pid, uint64_t address, const std::string& process) {
  if (PlainMap* const known = mapAt(pid, address)) {
    return *known;
  }
  ++tally_.madeUp;
  auto madeUp = std::make_unique<PlainMap>();
  ++nextKey_;
  madeUp->key = nextKey_++;
  madeUp->name = "{" + (process.empty() ? std::to_string(pid) : process);
  if (address >= INTERRUPT_START_64) {
    madeUp->start = INTERRUPT_START_64;
    madeUp->size = NO_IP - INTERRUPT_START_64;
    madeUp->name += "-interrupt}";
  } else if (INTERRUPT_START_32 <= address && address <= INTERRUPT_END_32) {
    madeUp->start = INTERRUPT_START_32;
    madeUp->size = INTERRUPT_END_32 - INTERRUPT_START_32;
    madeUp->name += "-interrupt}";
  } else {
    madeUp->start = address & PAGE_MASK;
    madeUp->size = PAGE_SIZE;
    char start[32];
    std::snprintf(start, sizeof(start), "-%" PRIx64 "}", madeUp->start);
    madeUp->name += start;
  }
  return maps_[pid].add(std::move(madeUp));
}

PlainItem& PlainConversion::_resolve(PlainThread& thread, uint64_t address) {
  if (PlainMap* const map = mapAt(thread.pid, address)) {
    ++map->uses;
    answers_.try_emplace({thread.pid, address}, map->key);
    PlainFunction* const function = _tableOf(*map).functions.find(address - map->symbolBase);
    if (function == nullptr) {
      return *map;
    }
    ++tally_.functionUses;
    ++function->uses;
    return *function;
  }
  const PlainThread* owner = &thread;
  if (thread.pid != thread.tid) {
    PlainThread& process = _threadOf(thread.pid, thread.pid);
    ++process.uses;
    owner = &process;
  }
  tally_.foreignOwners += owner->pid != thread.pid ? 1U : 0U;
  PlainMap& madeUp = _madeUpAt(owner->pid, address, owner->name);
  ++madeUp.uses;
  return madeUp;
}

// Which answers would be others by now, and which are one of several with their start.
void PlainConversion::_lookBack() {
  for (const auto& [place, key] : answers_) {
    const PlainMap* const map = mapAt(place.first, place.second);
    tally_.shadowedLater += map == nullptr || map->key != key ? 1U : 0U;
  }
  for (const auto& [pid, store] : maps_) {
    for (std::size_t i = 1; i < store.items.size(); ++i) {
      tally_.sharedStarts += store.items[i - 1]->start == store.items[i]->start ? 1U : 0U;
    }
  }
}

PlainTable& PlainConversion::_tableOf(PlainMap& map) {
  if (map.table != nullptr) {
    return *map.table;
  }
  const auto location = locations_.find(map.name);
  if (location != locations_.end() && tables_.contains(location->second)) {
    map.table = &tables_[location->second];
    return *map.table;
  }
  if (map.name.empty() || map.name[0] == '{') {
    map.table = &tables_[""];
    return *map.table;
  }
  map.table = &tables_[map.name];
  locations_[map.name] = map.name;
  _fillTable(*map.table, files_[map.name]);
  map.table->users[map.key] = &map;
  return *map.table;
}

void PlainConversion::_fillTable(PlainTable& table, const std::vector<PlainSymbol>& symbols) {
  for (std::size_t i = 0; i < symbols.size(); ++i) {
    const bool isLast = i + 1 == symbols.size();
    if (isLast && symbols[i].address == 0) {
      continue;
    }
    auto function = std::make_unique<PlainFunction>();
    function->start = symbols[i].address;
    function->size = isLast ? 1 : symbols[i + 1].address - symbols[i].address;
    function->key = nextKey_++;
    function->name = symbols[i].name;
    if (!isLast && !symbols[i].file.empty()) {
      sources_[symbols[i].file].push_back(function.get());
    }
    table.functions.add(std::move(function));
  }
}

bool PlainConversion::_isInWindow(double dataTime, double& clockTime) {
  if (dataStart_ == 0) {
    dataStart_ = dataTime;
    reference_ = settings_.offset + (dataTime - settings_.base) * settings_.skew;
  }
  clockTime = settings_.offset + (dataTime - settings_.base) * settings_.skew - reference_;
  if (dataTime < dataStart_) {
    return false;
  }
  return dataTime < dataEnd_ || dataEnd_ == 0;
}

std::string PlainConversion::_timeText(double time) const {
  char text[256];
  const long double value = time;
  if (value > 1e16L || value < -1e16L) {
    std::snprintf(text, sizeof(text), "%Le", value);
    return text;
  }
  if (settings_.timePrecision == 0) {
    std::snprintf(text, sizeof(text), "%Lf", value);
    return text;
  }
  std::snprintf(text, sizeof(text), "%.*Lf", static_cast<int>(settings_.timePrecision), value);
  std::string kept = text;
  if (kept.size() > settings_.timePrecision + 1) {
    while (kept.size() > 1 && kept.back() == '0') {
      kept.pop_back();
    }
    if (kept.size() > 1 && kept.back() == '.') {
      kept.pop_back();
    }
  }
  return kept;
}

void PlainConversion::_writeSample(const SampleFields& sample) {
  if (sample.callchain.empty()) {
    return;  // too short for its layout, which asks for an entry
  }
  double time = 0;
  if (!_isInWindow(static_cast<double>(sample.time) / 1e9, time) || sample.ip == 0 ||
      sample.ip == NO_IP) {
    return;
  }
  PlainThread& thread = _threadOf(sample.pid, sample.tid);
  ++thread.uses;
  const PlainItem& item = _resolve(thread, sample.ip);
  _openAt(0);
  unsigned place = 0;
  const std::string tid = std::to_string(sample.tid);
  for (const std::string& value :
       {std::to_string(++tally_.samples), std::to_string(sample.ip), std::to_string(item.key),
        _timeText(time), std::to_string(sample.cpu), tid, tid}) {
    _writeAt(++place, value);
  }
  _openAt(8);
  for (std::size_t i = 1; i < sample.callchain.size() && i <= settings_.maxBackTrace; ++i) {
    const uint64_t caller = sample.callchain[i];
    const uint64_t key = _resolve(thread, caller).key;
    _openAt(9);
    _writeAt(10, std::to_string(caller));
    _writeAt(11, std::to_string(key));
    document_.close(']');
  }
  document_.close(']').close(']');
}

void PlainConversion::_openAt(unsigned place) {
  const unsigned before = document_.breaks();
  document_.open('[');
  _noteBreak(before, place);
}

void PlainConversion::_writeAt(unsigned place, const std::string& text) {
  const unsigned before = document_.breaks();
  document_.value(text);
  _noteBreak(before, place);
}

void PlainConversion::_noteBreak(unsigned before, unsigned place) {
  if (document_.breaks() != before) {
    tally_.breaks.insert(place);
  }
}
