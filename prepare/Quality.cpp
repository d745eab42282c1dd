#include "prepare/Quality.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>
#include <unordered_map>

#include "kestrel/json/JsomWriter.h"
#include "prepare/NamedRanges.h"

namespace prepare {

using listing::Outcome;
using recordings::MappedFile;

namespace {

constexpr std::size_t LINES_OF_REASONS = 8;
constexpr std::size_t LINES_OF_MOVED = 1000;

struct Reason {
  const char* word;
  const char* text;
};

constexpr Reason STRIPPED{"stripped", "stripped, and no debug file was found"};

Reason reasonFor(Outcome outcome, MappedFile::Kind kind) {
  switch (outcome) {
    case Outcome::Named:
      return {"no-symbol", "no symbol covers these addresses"};
    case Outcome::NotFound:
      return {"not-found", "the file was not found"};
    case Outcome::BuildIdDiffers:
      return {"changed", "the file was changed since: its build id differs"};
    case Outcome::NoSymbols:
      return STRIPPED;
    case Outcome::NotElf:
      return {"not-elf", "is no ELF file"};
    case Outcome::NoPerfMap:
      return {"no-perf-map", "code that was made at run time, without a perf map"};
    case Outcome::OldPerfMap:
      return {"old-perf-map", "the perf map is older than the process: it is another one's"};
    case Outcome::Restricted:
      return {"restricted", "the kernel's list hides its addresses"};
    case Outcome::Failed:
      break;
  }
  return kind == MappedFile::Kind::KERNEL ? Reason{"not-found", "no list of the kernel was found"}
                                          : Reason{"failed", "could not be listed"};
}

double shareOf(std::uint64_t part, std::uint64_t all) {
  return all == 0 ? 0 : static_cast<double>(part) / static_cast<double>(all);
}

std::string percent(double share) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %%", share * 100);
  return text;
}

// Object members, one call each.
class Members {
 public:
  explicit Members(kestrel::JsomWriter& json) : json_(json) {}
  Members& text(const char* key, const std::string& value) {
    json_.appendLabel(key, true);
    json_.appendString(value, false);
    return *this;
  }
  Members& number(const char* key, std::uint64_t value) {
    json_.appendLabel(key, true);
    json_.appendUnsignedLong(value);
    return *this;
  }
  Members& real(const char* key, double value) {
    json_.appendLabel(key, true);
    json_.appendDouble(value, 9);
    return *this;
  }
  Members& texts(const char* key, const std::vector<std::string>& values) {
    json_.appendLabel(key, true);
    json_.startArray();
    for (const std::string& value : values) {
      json_.appendString(value, false);
    }
    json_.endArray();
    return *this;
  }
  Members& null(const char* key) {
    json_.appendLabel(key, true);
    json_.appendNull();
    return *this;
  }
  Members& object(const char* key) {
    json_.appendLabel(key, true);
    json_.startObject();
    return *this;
  }
  Members& array(const char* key) {
    json_.appendLabel(key, true);
    json_.startArray();
    return *this;
  }

 private:
  kestrel::JsomWriter& json_;
};

void addCounts(kestrel::JsomWriter& json, const char* key, const NamedCounts& counts) {
  Members(json)
      .object(key)
      .number("all", counts.all)
      .number("library", counts.mapped)
      .number("function",
              static_cast<std::uint64_t>(counts.named * static_cast<double>(counts.all) + 0.5));
  json.endObject();
}

// The first few; each with what would help.
template <typename Entry>
void addReasons(std::ostream& out, const char* title, const std::vector<Entry>& entries) {
  for (std::size_t i = 0; i < std::min(entries.size(), LINES_OF_REASONS); ++i) {
    const Entry& entry = entries[i];
    char count[32];
    std::snprintf(count, sizeof count, "%10llu", static_cast<unsigned long long>(entry.samples));
    out << (i == 0 ? title : "") << (i == 0 ? "\n" : "") << count << "  "
        << (entry.name.empty() ? "" : entry.name + ": ") << entry.text
        << (entry.cure.empty() ? "" : " -> " + entry.cure) << "\n";
  }
  if (entries.size() > LINES_OF_REASONS) {
    out << "            and " << entries.size() - LINES_OF_REASONS << " more, see quality.json\n";
  }
}

void addStackDumps(kestrel::JsomWriter& json, const Preparation& preparation) {
  Members members(json);
  if (const StackDumps* const dumps = preparation.stackDumps()) {
    static constexpr const char* ENDS[] = {"complete",      "mostFrames",  "stackTooShort",
                                           "unknownModule", "fileMissing", "noUnwindInformation",
                                           "broken"};
    members.object("stackDumps");
    for (std::size_t i = 0; i < dumps->ends().size(); ++i) {
      members.number(ENDS[i], dumps->ends()[i]);
    }
    json.endObject();
  }
}

void addChainEnds(kestrel::JsomWriter& json, const std::vector<ChainEnd>& ends) {
  Members members(json);
  members.array("chainEnds");
  for (const ChainEnd& end : ends) {
    json.startObject();
    members.text("reason", end.reason)
        .text("text", end.text)
        .text("name", end.name)
        .number("samples", end.samples)
        .text("cure", end.cure);
    json.endObject();
  }
  json.endArray();
}

void addDamages(kestrel::JsomWriter& json, const std::vector<recordings::Damage>& damages) {
  Members members(json);
  members.array("damage");
  for (const recordings::Damage& damage : damages) {
    json.startObject();
    members.text("what", damage.what)
        .number("offset", damage.offset)
        .number("lostBytes", damage.lostBytes);
    json.endObject();
  }
  json.endArray();
}

void addMoved(kestrel::JsomWriter& json, const Preparation& preparation) {
  Members members(json);
  members.array("moved");
  std::size_t moved = 0;
  preparation.plainProcesses().forEach([&](std::uint32_t pid, const PlainProcess& process) {
    process.placement.forEach([&](std::uint64_t written, const Piece& piece) {
      if (piece.shift != 0 && moved++ < LINES_OF_MOVED) {
        json.startObject();
        members.number("pid", pid)
            .text("name", piece.file->name)
            .number("from", piece.low)
            .number("to", written)
            .number("size", piece.high - piece.low)
            .number("samples", piece.samples);
        json.endObject();
      }
    });
  });
  json.endArray();
}

void addRenumbered(kestrel::JsomWriter& json, const Preparation& preparation) {
  Members members(json);
  members.array("renumbered");
  std::size_t renumbered = 0;
  preparation.threads().forEach([&](std::uint32_t tid, const SampledThread& thread) {
    if (thread.recordedTid != tid && renumbered++ < LINES_OF_MOVED) {
      json.startObject();
      members.number("pid", thread.pid)
          .number("tid", thread.recordedTid)
          .number("as", tid)
          .number("samples", thread.samples);
      json.endObject();
    }
  });
  json.endArray();
}

void addNameless(kestrel::JsomWriter& json, const std::vector<Nameless>& all) {
  Members members(json);
  members.array("nameless");
  for (const Nameless& nameless : all) {
    json.startObject();
    members.text("reason", nameless.reason)
        .text("text", nameless.text)
        .text("name", nameless.name)
        .number("samples", nameless.samples)
        .number("callers", nameless.callers)
        .text("cure", nameless.cure)
        .texts("searched", nameless.searched);
    json.endObject();
  }
  json.endArray();
}

}  // namespace

Quality::Quality(const recordings::Recording& recording, const recordings::WalkCounts& walk,
                 const Preparation& preparation, const Names& names, std::uint32_t event)
    : recording_(recording),
      walk_(walk),
      preparation_(preparation),
      names_(names),
      event_(event),
      clock_(recording.header(), walk.firstTime) {
  _countNames();
  _explain();
  if (const StackDumps* const dumps = preparation.stackDumps()) {
    chainEnds_ = explainChainEnds(*dumps, preparation.processes().files());
  }
  _judge();
}

void Quality::_countNames() {
  struct Known {
    const HitFile* hit = nullptr;  // null: the kernel itself, or nothing is known
    std::string list;
    bool isUser = false;
    std::unique_ptr<NamedRanges> ranges;
    FileCounts* samples = nullptr;
  };
  std::unordered_map<std::uint32_t, Known> files;
  for (const HitFile& hit : names_.files()) {
    files[hit.file->index] = {&hit, hit.listPath,
                              hit.file->kind != MappedFile::Kind::MODULE &&
                                  hit.file->kind != MappedFile::Kind::KERNEL_CODE,
                              nullptr, nullptr};
  }
  files[Preparation::KERNEL_INDEX].list = names_.kernelListPath();
  const auto isNamed = [&](Known& known, std::uint64_t offset) {
    if (known.ranges == nullptr) {
      known.ranges = std::make_unique<NamedRanges>(known.list);
    }
    return known.ranges->holds(known.hit == nullptr ? offset : known.hit->listedAddress(offset));
  };
  struct Tally {
    FileCounts user, kernel;
  };
  const auto tally = [&](const AddressCounts& counts, bool areSamples) {
    Tally sum;
    counts.forEach([&](std::uint32_t file, std::uint64_t offset, std::uint32_t count) {
      Known& known = files[file];
      FileCounts& mode = known.isUser ? sum.user : sum.kernel;
      const std::uint64_t named = isNamed(known, offset) ? count : 0;
      mode.all += count;
      mode.named += named;
      if (areSamples) {
        known.samples = known.samples == nullptr ? &samplesOfFile_[file] : known.samples;
        known.samples->all += count;
        known.samples->named += named;
      }
    });
    return sum;
  };
  const auto fill = [](NamedCounts& to, const ModeCounts& from, const FileCounts& counted) {
    to.all = from.all;
    to.mapped = from.mapped;
    to.named = shareOf(counted.named, counted.all) * shareOf(from.mapped, from.all);
  };
  const PreparationCounts& counts = preparation_.counts();
  const Tally samples = tally(preparation_.sampledAddresses(), true);
  fill(userSamples_, counts.userSamples, samples.user);
  fill(kernelSamples_, counts.kernelSamples, samples.kernel);
  const Tally callers = tally(preparation_.callerAddresses(), false);
  fill(userCallers_, counts.userCallers, callers.user);
  fill(kernelCallers_, counts.kernelCallers, callers.kernel);
}

void Quality::_explain() {
  for (const HitFile& hit : names_.files()) {
    _explainFile(hit);
  }
  if (!names_.hasKernelList() && names_.kernelHits() > 0) {
    const listing::KernelResult& kernel = names_.kernel();
    const Reason reason =
        reasonFor(kernel.outcome == Outcome::NotFound ? Outcome::Failed : kernel.outcome,
                  MappedFile::Kind::KERNEL);
    const auto counted = samplesOfFile_.find(Preparation::KERNEL_INDEX);
    nameless_.push_back({reason.word,
                         reason.text,
                         "[kernel.kallsyms]",
                         counted == samplesOfFile_.end() ? 0 : counted->second.all,
                         0,
                         kernel.cure,
                         {}});
  }
  const PreparationCounts& counts = preparation_.counts();
  const std::uint64_t unmappedSamples = counts.userSamples.all - counts.userSamples.mapped +
                                        counts.kernelSamples.all - counts.kernelSamples.mapped;
  const std::uint64_t unmappedCallers = counts.userCallers.all - counts.userCallers.mapped +
                                        counts.kernelCallers.all - counts.kernelCallers.mapped;
  if (unmappedSamples > 0 || unmappedCallers > 0) {
    nameless_.push_back(
        {"in-no-map",
         "addresses in no map",
         "",
         unmappedSamples,
         unmappedCallers,
         unmappedCallers > unmappedSamples
             ? "call chains end in code without frame pointers: record with --call-graph dwarf, or build with -fno-omit-frame-pointer"
             : "",
         {}});
  }
  std::stable_sort(nameless_.begin(), nameless_.end(), [](const Nameless& a, const Nameless& b) {
    return std::pair(a.samples, a.callers) > std::pair(b.samples, b.callers);
  });
}

void Quality::_explainFile(const HitFile& hit) {
  if (hit.file == &Placement::unknownFile()) {
    return;
  }
  const auto counted = samplesOfFile_.find(hit.file->index);
  const double namedShare =
      counted == samplesOfFile_.end() ? 0 : shareOf(counted->second.named, counted->second.all);
  const auto without =
      static_cast<std::uint64_t>((1 - namedShare) * static_cast<double>(hit.samples) + 0.5);
  if (hit.listing.outcome == Outcome::Named && without == 0) {
    return;
  }
  // Of a file that exports a few functions, the others are missing.
  const Reason reason = hit.listing.outcome == Outcome::Named &&
                                hit.listing.symbolsFrom == ".dynsym" &&
                                hit.file->kind == MappedFile::Kind::FILE
                            ? STRIPPED
                            : reasonFor(hit.listing.outcome, hit.file->kind);
  std::string text = reason.text;
  if (hit.listing.outcome == Outcome::BuildIdDiffers) {
    text += " (recorded " + recordings::hexText(names_.recorded().buildIdOf(*hit.file)) +
            ", found " + recordings::hexText(hit.listing.foundBuildId) + ")";
  }
  nameless_.push_back({reason.word, text, hit.file->name, without,
                       hit.listing.outcome == Outcome::Named ? 0 : hit.callers, hit.listing.cure,
                       hit.listing.searched});
}

void Quality::_judge() {
  const PreparationCounts& counts = preparation_.counts();
  const double named = userSamples_.named * shareOf(userSamples_.all, counts.samples()) +
                       kernelSamples_.named * shareOf(kernelSamples_.all, counts.samples());
  if (counts.samples() == 0) {
    judgement_ = "There are no samples, so there is nothing to see.";
  } else if (named < 0.9) {
    judgement_ = "Fit for totals by library only: too many samples have no function.";
  } else {
    judgement_ = "Fit for totals by function" + _judgementOfChains();
  }
}

std::string Quality::_judgementOfChains() const {
  const std::uint64_t callers = userCallers_.all + kernelCallers_.all;
  std::uint64_t early = 0;
  for (const ChainEnd& end : chainEnds_) {
    early += end.samples;
  }
  if (callers == 0) {
    return "; there are no call chains.";
  }
  if (shareOf(early, preparation_.counts().samples()) > 0.05) {
    return "; call chains cannot be trusted, too many end before the outermost function.";
  }
  if (shareOf(userCallers_.mapped + kernelCallers_.mapped, callers) < 0.95) {
    return "; call chains cannot be trusted, too many end in code without frame pointers.";
  }
  return " and for call chains.";
}

std::string Quality::json() const {
  std::ostringstream out;
  kestrel::JsomWriter json(&out);
  json.whitespace = true;
  Members members(json);
  const recordings::Facts& facts = recording_.header().facts;
  const PreparationCounts& counts = preparation_.counts();
  json.startObject();
  members.number("version", 1).object("recording");
  members.text("file", recording_.name())
      .text("host", facts.hostname)
      .text("kernel", facts.osRelease)
      .text("perf", facts.perfVersion)
      .text("architecture", facts.architecture)
      .texts("commandLine", facts.commandLine)
      .text("event", recording_.events()[event_].name)
      .text("clock", clock_.description())
      .text("firstSample", secondsText(walk_.firstTime))
      .text("duration", secondsText(walk_.lastTime - walk_.firstTime));
  if (const auto wall = clock_.wallOfFirstSample()) {
    members.text("wallClockOfFirstSample", wallText(*wall))
        .text("wallClockNanoseconds", std::to_string(*wall));
  } else {
    members.null("wallClockOfFirstSample").null("wallClockNanoseconds");
  }
  json.endObject();

  std::uint64_t others = 0;
  for (const std::uint64_t samples : walk_.samplesOfEvent) {
    others += samples;
  }
  members.object("samples")
      .number("all", counts.samples())
      .number("otherEvents", others - std::min(others, counts.samples()))
      .number("lost", walk_.lostSamples)
      .number("lostRecords", walk_.lostRecords)
      .number("throttles", walk_.throttles)
      .real("throttledSeconds", static_cast<double>(walk_.throttledNanoseconds) / 1e9)
      .number("moved", counts.movedSamples)
      .number("underOtherNames", counts.samplesUnderOtherNames)
      .number("brokenRecords", walk_.brokenRecords)
      .number("ofNoEvent", walk_.samplesOfNoEvent);
  json.endObject();
  members.object("names").object("samples");
  addCounts(json, "user", userSamples_);
  addCounts(json, "kernel", kernelSamples_);
  json.endObject();
  members.object("callers");
  addCounts(json, "user", userCallers_);
  addCounts(json, "kernel", kernelCallers_);
  members.number("every", Preparation::CALLERS_COUNTED_EVERY);
  json.endObject();
  json.endObject();
  addStackDumps(json, preparation_);
  addChainEnds(json, chainEnds_);
  addDamages(json, walk_.damages);
  addMoved(json, preparation_);
  addRenumbered(json, preparation_);
  addNameless(json, nameless_);
  members.text("judgement", judgement_);
  json.end();
  return out.str() + "\n";
}

std::string Quality::text() const {
  const PreparationCounts& counts = preparation_.counts();
  std::ostringstream out;
  const auto line = [&out](const char* what, const std::string& value) {
    char label[32];
    std::snprintf(label, sizeof label, "%-18s", what);
    out << label << value << "\n";
  };
  const auto shares = [](const NamedCounts& c) {
    return percent(shareOf(c.mapped, c.all)) + " in a library, " + percent(c.named) +
           " with a function";
  };
  line("samples", std::to_string(counts.samples()) + " of " + recording_.events()[event_].name);
  for (const recordings::Damage& damage : walk_.damages) {
    line("damaged", damage.what + ", at byte " + std::to_string(damage.offset) + ": " +
                        std::to_string(damage.lostBytes) + " bytes are lost");
  }
  if (walk_.lostSamples + walk_.lostRecords > 0) {
    line("lost", std::to_string(std::max(walk_.lostSamples, walk_.lostRecords)) +
                     " while recording (a larger -m, or a lower -F, loses less)");
  }
  if (userSamples_.all > 0) {
    line("  user", std::to_string(userSamples_.all) + ": " + shares(userSamples_));
  }
  if (kernelSamples_.all > 0) {
    line("  kernel", std::to_string(kernelSamples_.all) + ": " + shares(kernelSamples_));
  }
  if (userCallers_.all > 0) {
    line("  user callers", std::to_string(userCallers_.all) + ": " + shares(userCallers_));
  }
  if (kernelCallers_.all > 0) {
    line("  kernel callers", std::to_string(kernelCallers_.all) + ": " + shares(kernelCallers_));
  }
  if (counts.movedSamples > 0) {
    line("moved",
         std::to_string(counts.movedSamples) + " samples, where one address was several things");
  }
  line("clock", clock_.description());
  if (const auto wall = clock_.wallOfFirstSample()) {
    line("first sample", wallText(*wall));
  }
  addReasons(out, "without a name, in samples:", nameless_);
  addReasons(out, "call chains that end early, in samples:", chainEnds_);
  out << judgement_ << "\n";
  return out.str();
}

}  // namespace prepare
