#include "listing/Kernel.h"

#include <algorithm>
#include <elf.h>
#include <optional>
#include <string_view>
#include <unistd.h>
#include <unordered_map>
#include <utility>

#include "kestrel/FileUtils.h"
#include "listing/ChildPool.h"
#include "listing/Demangler.h"
#include "listing/ElfFile.h"
#include "listing/Kallsyms.h"
#include "listing/KernelSources.h"
#include "listing/ListText.h"
#include "listing/OwnKernelList.h"
#include "listing/PerfMap.h"
#include "listing/RegularFile.h"
#include "listing/SymbolRanges.h"
#include "listing/Unpacking.h"

namespace listing {

namespace {

constexpr std::string_view FIRST_NAME = "_text";
constexpr std::size_t MAX_MODULE = std::size_t{512} << 20;  // unpacked

// The kernel's own symbols, at the addresses of the recording, by address.
struct CoreSymbols {
  std::vector<Symbol> symbols;
  std::optional<std::uint64_t> textStart;  // of _text, else _stext
  std::optional<std::uint64_t> textEnd;    // of _etext
};

class KernelListing {
 public:
  KernelListing(const Kernel& kernel, const Options& options, const std::string& workDir)
      : kernel_(kernel),
        options_(options),
        workDir_(workDir),
        demangler_(
            Demangler::Style::Off),  // as perf: C++ and Rust in a kernel are shown as they are
        ownList_(kernel, options, OwnKernelList::Places()),
        source_(findKernelSource(kernel, options, [this] { return _takeKept(); })) {}

  KernelResult list() {
    result_.source = source_.path;
    result_.searched = source_.searched;
    if (source_.kind == KernelSource::Kind::Kallsyms) {
      _listKallsyms();
      if (source_.isRunning && result_.outcome == Outcome::Named) {
        ownList_.keep(result_.list);
      }
    } else if (source_.kind == KernelSource::Kind::Kept) {
      result_.outcome = Outcome::Named;
      result_.list = _corePath();
    } else if (source_.kind == KernelSource::Kind::Vmlinux) {
      _listVmlinux();
    } else {
      result_.outcome = source_.isRestricted  ? Outcome::Restricted
                        : source_.isDifferent ? Outcome::BuildIdDiffers
                                              : Outcome::NotFound;
    }
    _listModuleFiles();
    _listKsymbols();
    _addCure();
    return std::move(result_);
  }

 private:
  std::string _corePath() const { return workDir_ + "/kernel.list"; }

  // Modules are listed from the same text, so that it is needed.
  bool _takeKept() {
    ::unlink(_corePath().c_str());
    return kernel_.modules.empty() && ownList_.take(_corePath());
  }

  // What is to be added to addresses of the source, modulo 2^64.
  std::uint64_t _move(const std::optional<std::uint64_t>& reference) const {
    return reference && kernel_.referenceAddress != 0 ? kernel_.referenceAddress - *reference : 0;
  }

  void _listKallsyms() {
    const Kallsyms list = Kallsyms::parse(source_.text);
    const auto addressOf = [this](std::string_view name) {
      return Kallsyms::addressOf(source_.text, name);
    };
    const std::string reference = kernel_.referenceName.empty() ? "_text" : kernel_.referenceName;
    const std::uint64_t move = _move(addressOf(reference));
    CoreSymbols core;
    std::optional<std::uint64_t> start = addressOf("_text");
    start = start ? start : addressOf("_stext");
    const std::optional<std::uint64_t> end = addressOf("_etext");
    core.textStart = start ? std::optional(*start + move) : start;
    core.textEnd = end ? std::optional(*end + move) : end;
    std::unordered_map<std::string_view, std::vector<Symbol>> byModule;
    for (const Kallsyms::Entry& entry : list.entries) {
      Symbol symbol = entry.symbol;
      if (entry.module.empty()) {
        symbol.start += move;
        symbol.end += move;
        core.symbols.push_back(symbol);
      } else {
        byModule[entry.module].push_back(symbol);
      }
    }
    _writeCore(core);
    for (const Kernel::Module& module : kernel_.modules) {
      const auto symbols = byModule.find(module.name);
      if (symbols != byModule.end()) {
        _writeModule(module, symbols->second);
      }
    }
  }

  // A module lies elsewhere after each time it is loaded.
  void _writeModule(const Kernel::Module& module, std::vector<Symbol> symbols) {
    const std::uint64_t now = source_.isRunning ? runningModuleStart(module.name) : 0;
    const std::uint64_t move = now != 0 && module.start != 0 ? module.start - now : 0;
    const std::uint64_t end = module.end > module.start ? module.end : UINT64_MAX;
    for (Symbol& symbol : symbols) {
      symbol.start += move;
      symbol.end = std::min(symbol.end + move, end);
    }
    std::erase_if(symbols, [&module, end](const Symbol& symbol) {
      return symbol.start < module.start || symbol.start >= end;
    });
    _write(module.name, listOfCode(std::move(symbols), {}, demangler_));
  }

  void _write(const std::string& name, const ListText& list) {
    const std::string path =
        workDir_ + "/module-" + std::to_string(result_.moduleLists.size()) + ".list";
    if (!list.isEmpty() && kestrel::FileUtils::writeFile(path, list.text())) {
      result_.moduleLists[name] = path;
    }
  }

  // In a child, because it is an ELF file; as text of the same form as /proc/kallsyms, so that the
  // rest is the same.
  void _listVmlinux() {
    std::string path = workDir_ + "/vmlinux-symbols";
    ::unlink(path.c_str());
    std::optional<std::string> reply;
    ChildPool(1, options_.timeout)
        .run(
            1, [&](std::size_t) { return _readVmlinux(path); },
            [&](std::size_t, std::optional<std::string> text) { reply = std::move(text); });
    const std::optional<RegularFile> file = RegularFile::open(path);
    if (!reply || !file) {
      result_.outcome = Outcome::Failed;
      return;
    }
    source_.text = file->readText(file->size());
    ::unlink(path.c_str());
    _listKallsyms();
  }

  std::string _readVmlinux(const std::string& path) const {
    const std::optional<RegularFile> file = RegularFile::open(source_.path);
    const std::unique_ptr<ElfFile> elf = file ? ElfFile::open(*file) : nullptr;
    std::vector<Symbol> symbols;
    if (elf) {
      elf->addSymbols(SHT_SYMTAB, symbols);
    }
    std::string text;
    for (const Symbol& symbol : symbols) {
      ListText line;
      line.add(symbol.start, symbol.name);
      std::string entry = line.text();
      entry[17] = symbol.isWeak ? 'W' : symbol.isGlobal ? 'T' : 't';
      text += entry;
    }
    kestrel::FileUtils::writeFile(path, text);
    return "done";
  }

  void _writeCore(CoreSymbols& core) {
    if (!_chooseRange(core)) {
      result_.outcome = Outcome::Failed;
      return;
    }
    ListText list;
    list.add(start_, FIRST_NAME);
    std::uint64_t last = start_;
    forEachRange(core.symbols, [&](const Range& range) {
      const std::string_view name =
          range.symbol == Range::NONE ? ListText::UNKNOWN_NAME : core.symbols[range.symbol].name;
      if (range.start <= start_ && name == FIRST_NAME) {
        return;
      }
      // Another name of the first address has all bytes but that one.
      const std::uint64_t start = std::max(range.start, start_ + 1);
      if (start > last && start < end_ - 1) {
        list.add(start, name);
        last = start;
      }
    });
    if (last < end_ - 1) {
      list.addUnknown(end_ - 1);
    }
    const std::string path = _corePath();
    ::unlink(path.c_str());  // which may be a link into the cache
    result_.outcome = Outcome::Failed;
    if (kestrel::FileUtils::writeFile(path, list.text())) {
      result_.outcome = Outcome::Named;
      result_.list = path;
    }
  }

  // The recorded range, cut to what is the kernel's: old recorders give all of the address space.
  bool _chooseRange(CoreSymbols& core) {
    start_ = kernel_.start != 0 ? kernel_.start : core.textStart.value_or(0);
    end_ = kernel_.end;
    constexpr std::uint64_t MAX_KERNEL = std::uint64_t{1} << 30;  // from its first byte to its last
    if (end_ <= start_ || end_ - start_ > MAX_KERNEL) {
      end_ = core.textEnd.value_or(std::min(start_, UINT64_MAX - MAX_KERNEL) + MAX_KERNEL);
    }
    if (core.textStart && start_ < *core.textStart && *core.textStart < end_) {
      start_ = *core.textStart;
    }
    std::erase_if(core.symbols, [this](const Symbol& symbol) {
      return symbol.start < start_ || symbol.start >= end_;
    });
    return !core.symbols.empty() && start_ != 0 && end_ > start_ + 1;
  }

  // Modules that no list has: from their files, which tell where functions are in .text; that is
  // loaded at the start.
  void _listModuleFiles() {
    std::vector<const Kernel::Module*> missing;
    for (const Kernel::Module& module : kernel_.modules) {
      if (result_.moduleLists.count(module.name) == 0 && module.path.starts_with('/')) {
        missing.push_back(&module);
      }
    }
    const auto pathOf = [this](std::size_t index) {
      return workDir_ + "/module-file-" + std::to_string(index) + ".list";
    };
    ChildPool(2, options_.timeout)
        .run(
            missing.size(),
            [&](std::size_t index) { return _listModuleFile(*missing[index], pathOf(index)); },
            [&](std::size_t index, const std::optional<std::string>& reply) {
              if (reply && *reply == "done") {
                result_.moduleLists[missing[index]->name] = pathOf(index);
              }
            });
  }

  std::string _listModuleFile(const Kernel::Module& module, const std::string& path) {
    for (const std::string& root : options_.sysroots) {
      const std::optional<RegularFile> file = RegularFile::openBelow(root, module.path);
      std::optional<std::string> bytes =
          file ? unpackAny(file->readText(MAX_MODULE), MAX_MODULE) : std::nullopt;
      const std::unique_ptr<ElfFile> elf = bytes ? ElfFile::ofMemory(std::move(*bytes)) : nullptr;
      const auto* note = elf ? elf->findSection(".note.gnu.build-id") : nullptr;
      if (!elf || !elf->isRelocatable()) {
        continue;
      }
      const BuildId id =
          note != nullptr ? findBuildId(elf->content(*note), elf->isBigEndian()).value_or(BuildId())
                          : BuildId();
      if (!module.buildId.empty() && !isSameBuildId(id, module.buildId)) {
        continue;
      }
      std::vector<Symbol> symbols;
      elf->addSymbols(SHT_SYMTAB, symbols, ".text");
      completeSizes(symbols);
      chooseAliases(symbols, demangler_);
      for (Symbol& symbol : symbols) {
        symbol.start += module.start;
        symbol.end += module.start;
      }
      const ListText list = listOfCode(
          std::move(symbols), {{module.start, std::max(module.end, module.start + 1)}}, demangler_);
      return !list.isEmpty() && kestrel::FileUtils::writeFile(path, list.text()) ? "done"
                                                                                 : "failed";
    }
    return "not found";
  }

  void _listKsymbols() {
    std::vector<Symbol> symbols;
    for (const Kernel::Symbol& symbol : kernel_.ksymbols) {
      const std::uint64_t size =
          std::min(std::max<std::uint64_t>(symbol.size, 1), UINT64_MAX - symbol.address);
      symbols.push_back(
          {symbol.address, symbol.address + size, symbol.name, false, true, false, false});
    }
    _write(KernelResult::KSYMBOLS, listOfCode(std::move(symbols), {}, demangler_));
  }

  void _addCure() {
    if (result_.outcome == Outcome::Restricted) {
      result_.cure =
          "The kernel hides its addresses: run this as root, or let it show them with: sysctl kernel.kptr_restrict=0 kernel.perf_event_paranoid=1.";
    } else if (result_.outcome == Outcome::NotFound || result_.outcome == Outcome::BuildIdDiffers) {
      result_.cure =
          "Bring /proc/kallsyms of the recorded machine, in the boot of the recording and read as root, and name it with --kallsyms; or the kernel with symbols with --vmlinux.";
    }
  }

  const Kernel& kernel_;
  const Options& options_;
  const std::string& workDir_;
  Demangler demangler_;
  OwnKernelList ownList_;
  KernelSource source_;
  std::uint64_t start_ = 0;  // what the core's list tells of: [start_, end_)
  std::uint64_t end_ = 0;
  KernelResult result_;
};

}  // namespace

KernelResult listKernel(const Kernel& kernel, const Options& options, const std::string& workDir) {
  return KernelListing(kernel, options, workDir).list();
}

}  // namespace listing
