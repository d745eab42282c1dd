#include "prepare/ChainEnds.h"

#include <algorithm>
#include <map>
#include <utility>

namespace prepare {

using unwinding::End;

namespace {

// With what holds for the file `name`.
ChainEnd explanationOf(End end, const std::string& name) {
  switch (end) {
    case End::StackTooShort:
      return {"stack-too-short", "the recorded piece of stack was too short", "", 0,
              "Record more of it: --call-graph dwarf,65528."};
    case End::UnknownModule:
      return {"unknown-module", "the caller is in no file", name, 0,
              "Code that was made at run time can be followed if it keeps frame pointers and is "
              "recorded with --call-graph fp."};
    case End::FileMissing:
      return {"file-missing", "the caller's file was not found, or is another one", name, 0,
              "Read the recording where the file is, or name the root of a copy of that machine's "
              "files with --sysroot."};
    case End::NoCallFrameInformation:
      return {"no-unwind-table", "the file does not say how to leave the function", name, 0,
              "Build it with -fasynchronous-unwind-tables, or install its debug file."};
    case End::Broken:
    case End::Complete:
    case End::MostFrames:
      break;
  }
  return {"broken-frame", "what the file says of the function led nowhere", name, 0, ""};
}

bool isEarly(End end) { return end != End::Complete && end != End::MostFrames; }

}  // namespace

std::vector<ChainEnd> explainChainEnds(const StackDumps& dumps,
                                       const recordings::MappedFiles& files) {
  std::map<std::pair<std::string, std::string>, ChainEnd> found;  // by reason and name
  for (const auto& [where, samples] : dumps.endsByFile()) {
    const auto [end, file] = where;
    if (isEarly(end)) {
      const bool hasFile = file < files.all().size();
      ChainEnd explained = explanationOf(end, hasFile ? files.all()[file].name : "");
      ChainEnd& entry =
          found.try_emplace({explained.reason, explained.name}, explained).first->second;
      entry.samples += samples;
    }
  }
  std::vector<ChainEnd> ends;
  for (auto& [key, end] : found) {
    ends.push_back(std::move(end));
  }
  std::stable_sort(ends.begin(), ends.end(),
                   [](const ChainEnd& a, const ChainEnd& b) { return a.samples > b.samples; });
  return ends;
}

}  // namespace prepare
