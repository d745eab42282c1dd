// Fuzz target: what names functions, from files that anybody may have written. The first byte says
// what the rest is: a perf map, a jitdump file, the kernel's list, notes, or an ELF file, which is
// read here in this process. A list that comes out must be in order, and every line of it one of
// the format.
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

#include "listing/BuildId.h"
#include "listing/Demangler.h"
#include "listing/ElfList.h"
#include "listing/JitDump.h"
#include "listing/Kallsyms.h"
#include "listing/PerfMap.h"
#include "listing/RegularFile.h"
#include "symbols/SymbolLine.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/fuzz/MemoryFile.h"

namespace {

void requireList(std::string_view text) {
  bool isFirst = true;
  uint64_t last = 0;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    require(end != std::string_view::npos, "every line of a list ends");
    const auto line = SymbolLine::parse(text.substr(0, end));
    require(line.has_value(), "every line of a list is read");
    require(line->name.size() > 2, "every name is shown");
    require(isFirst || line->address > last, "addresses ascend");
    last = line->address;
    isFirst = false;
    text.remove_prefix(end + 1);
  }
}

void listCode(std::vector<listing::Symbol> symbols) {
  listing::Demangler demangler(listing::Demangler::Style::Names);
  requireList(listing::listOfCode(std::move(symbols), {}, demangler).text());
}

void readKallsyms(const std::string& text) {
  const listing::Kallsyms list = listing::Kallsyms::parse(text);
  for (std::size_t i = 1; i < list.entries.size(); ++i) {
    require(list.entries[i - 1].symbol.start < list.entries[i].symbol.start,
            "one symbol an address");
  }
  listing::Kallsyms::addressOf(text, "_text");
}

void listElf(const std::string& bytes) {
  MemoryFile file;
  file.write(bytes);
  const std::string list = "/tmp/listing-fuzz-" + std::to_string(::getpid());
  ::unlink(list.c_str());
  listing::Demangler demangler(listing::Demangler::Style::Names);
  listing::writeElfList({file.path(), "", true}, demangler, list);
  if (const auto written = listing::RegularFile::open(list)) {
    requireList(written->readText(written->size()));
  }
  ::unlink(list.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0]) {
    case 'm':
      listCode(listing::parsePerfMap(rest));
      break;
    case 'j':
      listCode(listing::parseJitDump(rest));
      break;
    case 'k':
      readKallsyms(rest);
      break;
    case 'n':
      listing::findBuildId(rest, false);
      listing::findBuildId(rest, true);
      break;
    default:
      listElf(rest);
  }
  return 0;
}
