#include "symbols/SymbolTable.h"

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/json/JsomWriter.h"

namespace {

// Names up to this length are not shown, empty or not: kept so.
constexpr std::size_t LONGEST_HIDDEN_NAME = 2;

}  // namespace

FunctionInfo* SymbolTable::getFunction(unsigned long long address, const MMapInfo* map) const {
  return static_cast<FunctionInfo*>(findRangedItem(address - map->loadBias));
}

FunctionInfo* SymbolTable::findFunction(const std::string& name) const {
  for (RangedItem* const item : items()) {
    auto* const function = static_cast<FunctionInfo*>(item);
    if (function->name == name) {
      return function;
    }
  }
  return nullptr;
}

const FunctionInfo* SymbolTable::lastFunction() const {
  return items().empty() ? nullptr : static_cast<const FunctionInfo*>(items().back());
}

void SymbolTable::writeLegacyJsonObjectEntries(kestrel::JsomWriter& writer, bool writeAll) const {
  const std::string_view blankName = kestrel::Singleton<PerfSettings>::Instance()->blankName;
  for (const RangedItem* const item : items()) {
    const auto& function = static_cast<const FunctionInfo&>(*item);
    if (!writeAll && function.refCount == 0) {
      continue;
    }
    writer.startArray();
    writer.appendUnsignedLong(function.key);
    const std::string_view name =
        function.name.size() <= LONGEST_HIDDEN_NAME ? blankName : function.name;
    writer.appendString(name.data(), static_cast<int>(name.size()), false);
    writer.appendUnsignedLong(function.start);
    writer.appendUnsignedLong(function.size);
    writer.startArray();
    for (const MMapInfo* const map : maps_) {
      if (writeAll || map->refCount != 0) {
        writer.appendUnsignedLong(map->key);
      }
    }
    writer.endArray();
    writer.endArray();
  }
}
