#include "listing/ElfList.h"

#include <algorithm>
#include <elf.h>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "listing/Demangler.h"
#include "listing/ElfFile.h"
#include "listing/ListFile.h"
#include "listing/RegularFile.h"
#include "listing/SourceFiles.h"
#include "listing/SymbolRanges.h"

namespace listing {

namespace {

constexpr std::size_t NAMES_KEPT = 4096;  // demangled, at once

std::unique_ptr<ElfFile> _open(const std::string& path) {
  const std::optional<RegularFile> file = RegularFile::open(path);
  return file ? ElfFile::open(*file) : nullptr;
}

// Everything that has names of one program or library. The objects own the names.
class SymbolSources {
 public:
  explicit SymbolSources(const ElfListTask& task)
      : running_(_open(task.file)),
        separate_(!task.symbols.empty() && task.symbols != task.file ? _open(task.symbols)
                                                                     : nullptr) {}

  bool isOpen() const { return running_ != nullptr; }

  // In the order in which perf takes them, and with its rules after each step.
  std::vector<Symbol> collect(const ElfListTask& task, Demangler& demangler, ElfListReply& reply) {
    std::vector<Symbol> symbols;
    ElfFile* tables = separate_ ? separate_.get() : running_.get();
    if (tables->hasSymbols(SHT_SYMTAB)) {
      tables->addSymbols(SHT_SYMTAB, symbols);
      reply.symbolsFrom = separate_ ? task.symbols : task.file;
    } else if ((unpacked_ = running_->openDebugData()) != nullptr) {
      unpacked_->addSymbols(SHT_SYMTAB, symbols);
      reply.symbolsFrom = ".gnu_debugdata";
      tables = running_.get();
    } else {
      reply.symbolsFrom = ".dynsym";
    }
    _settle(symbols, demangler);
    const std::size_t count = symbols.size();
    tables->addSymbols(SHT_DYNSYM, symbols);
    if (symbols.size() > count) {
      _settle(symbols, demangler);
    }
    reply.outcome = symbols.empty() ? Outcome::NoSymbols : Outcome::Named;
    _addPltEntries(symbols);
    return symbols;
  }

  ElfFile& fileOfLines() { return separate_ ? *separate_ : *running_; }

 private:
  // Some linkers have symbols for the entries (`NAME$plt`): those are the names.
  void _addPltEntries(std::vector<Symbol>& symbols) {
    const std::size_t count = symbols.size();
    running_->addPltEntries(symbols);
    const auto entries = symbols.begin() + static_cast<std::ptrdiff_t>(count);
    const auto hasSymbol = [&symbols, entries](const Symbol& entry) {
      const auto symbol =
          std::lower_bound(symbols.begin(), entries, entry.start,
                           [](const Symbol& a, std::uint64_t start) { return a.start < start; });
      return symbol != entries && symbol->start == entry.start && symbol->end > symbol->start &&
             !symbol->isLabel;
    };
    symbols.erase(std::remove_if(entries, symbols.end(), hasSymbol), symbols.end());
    sortByStart(symbols);
  }

  static void _settle(std::vector<Symbol>& symbols, Demangler& demangler) {
    completeSizes(symbols);
    chooseAliases(symbols, demangler);
  }

  std::unique_ptr<ElfFile> running_;
  std::unique_ptr<ElfFile> separate_;
  std::unique_ptr<ElfFile> unpacked_;  // from .gnu_debugdata
};

std::string _shownName(const Symbol& symbol, Demangler& demangler) {
  const std::string_view name = demangler.demangle(symbol.name);
  return symbol.isPltEntry ? std::string(name) + "@plt" : std::string(name);
}

std::vector<std::uint64_t> _startsOf(const std::vector<Symbol>& symbols) {
  std::vector<std::uint64_t> starts(symbols.size());
  std::transform(symbols.begin(), symbols.end(), starts.begin(),
                 [](const Symbol& symbol) { return symbol.start; });
  return starts;
}

}  // namespace

ElfListReply writeElfList(const ElfListTask& task, Demangler& demangler, const std::string& path) {
  ElfListReply reply;
  SymbolSources sources(task);
  const std::optional<Layout> layout = readLayout(task.file);
  if (!sources.isOpen() || !layout) {
    reply.outcome = Outcome::NotElf;
    return reply;
  }
  std::vector<Symbol> symbols = sources.collect(task, demangler, reply);
  std::erase_if(symbols,
                [&layout](const Symbol& symbol) { return !layout->holdsCode(symbol.start); });
  if (symbols.empty()) {
    reply.outcome = Outcome::NoSymbols;
    return reply;
  }
  SourceFiles sourceFiles;
  if (task.lines) {
    sourceFiles.read(sources.fileOfLines(), _startsOf(symbols));
  }
  ListFile list(path);
  std::size_t shown = 0;
  forEachRange(symbols, [&](const Range& range) {
    if (range.symbol == Range::NONE) {
      list.add(range.start, ListText::UNKNOWN_NAME);
      return;
    }
    list.add(range.start, _shownName(symbols[range.symbol], demangler),
             sourceFiles.fileOf(range.symbol));
    if (++shown % NAMES_KEPT == 0) {
      demangler.clear();
    }
  });
  demangler.clear();  // its names are keyed by those of files that close here
  if (!list.close()) {
    reply.outcome = Outcome::Failed;
  }
  return reply;
}

}  // namespace listing
