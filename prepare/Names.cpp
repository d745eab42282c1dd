#include "prepare/Names.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sys/utsname.h>

#include "listing/ListText.h"
#include "listing/Listing.h"
#include "prepare/TouchedLines.h"

namespace prepare {

using recordings::MappedFile;

namespace {

constexpr std::uint32_t NO_PID = 0xffffffff;
constexpr char KERNEL_NAME[] = "[kernel.kallsyms]";

std::string ownRelease() {
  utsname system{};
  return uname(&system) == 0 ? system.release : "";
}

// Whether this machine's kernel is the recorded one, of which the recording says nothing but where
// its text was: a recorder that was killed tells no more.
bool isOwnKernel(const recordings::KernelImage& image) {
  std::ifstream list("/proc/kallsyms");
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  for (std::string line; (start == 0 || end == 0) && std::getline(list, line);) {
    if (line.ends_with(" T " + image.referenceName)) {
      start = std::strtoull(line.c_str(), nullptr, 16);
    } else if (line.ends_with(" _etext")) {
      end = std::strtoull(line.c_str(), nullptr, 16);
    }
  }
  return start != 0 && start == image.referenceAddress && end == image.end;
}

// As perf calls a thread that has no name.
std::string numberName(const SampledThread& thread) {
  std::string name = std::to_string(static_cast<std::int32_t>(thread.recordedTid));
  return name.insert(0, 1, ':');
}

bool isListable(const MappedFile& file) {
  return file.kind == MappedFile::Kind::FILE || file.kind == MappedFile::Kind::VDSO ||
         file.kind == MappedFile::Kind::VDSO_32 || file.kind == MappedFile::Kind::PERF_MAP;
}

}  // namespace

Names::Names(const recordings::Recording& recording, const Preparation& preparation,
             const RecordedFiles& recorded, const listing::Options& options, ConverterFiles& files)
    : recording_(recording),
      preparation_(preparation),
      recorded_(recorded),
      options_(options),
      converter_(files) {}

void Names::find(const std::function<void(std::size_t, std::size_t)>& progress) {
  _collect();
  std::vector<listing::File> wanted;
  std::vector<HitFile*> owners;
  for (HitFile& hit : files_) {
    if (!isListable(*hit.file)) {
      continue;
    }
    listing::File file = recorded_.fileOf(*hit.file);
    file.samples = hit.samples + hit.callers;
    if (file.kind == listing::File::Kind::PerfMap) {
      preparation_.runTimeCode().describe(file, recording_, _isRecordedHere());
    }
    wanted.push_back(std::move(file));
    owners.push_back(&hit);
  }
  listing::Options options = options_;
  options.sameMachine = _isRecordedHere();
  std::vector<listing::Result> results =
      listing::listFiles(wanted, options, converter_.listFolder(), progress);
  for (std::size_t i = 0; i < results.size(); ++i) {
    owners[i]->listing = std::move(results[i]);
    if (!owners[i]->listing.list.empty()) {
      owners[i]->listPath = owners[i]->listing.list;
    }
  }
  _shortenLists();
  for (HitFile* const owner : owners) {
    if (!owner->listPath.empty()) {
      converter_.addList(owner->writtenName, owner->listPath);
    }
  }
  _listKernel();
}

// To the functions that were hit: a converter that reads all of a compiler takes longer for that
// than for the samples.
void Names::_shortenLists() const {
  const TouchedCode& touched = preparation_.touchedCode();
  if (touched.isEverything()) {
    return;
  }
  const auto granules = touched.granules();
  std::map<std::string, std::vector<std::pair<std::uint64_t, std::uint64_t>>> rangesOfLists;
  for (const HitFile& hit : files_) {
    const auto place = granules.find(hit.file->index);
    if (hit.listPath.empty() || place == granules.end()) {
      continue;
    }
    auto& ranges = rangesOfLists[hit.listPath];
    for (const std::uint64_t granule : place->second) {
      // Where two segments meet, both ends count.
      constexpr std::uint64_t MORE = TouchedCode::GRANULE - 1;
      const std::uint64_t first = hit.listedAddress(granule);
      const std::uint64_t last = hit.listedAddress(granule + MORE);
      ranges.emplace_back(first, first + std::min(MORE, ~first));
      ranges.emplace_back(last - std::min(last, MORE), last);
    }
  }
  for (auto& [list, ranges] : rangesOfLists) {
    std::sort(ranges.begin(), ranges.end());
    keepTouchedLines(list, ranges);
  }
}

// Which files were hit, and how often.
void Names::_collect() {
  preparation_.plainProcesses().forEach([this](std::uint32_t, const PlainProcess& process) {
    kernelHits_ += process.kernelHits;
    process.placement.forEach([this](std::uint64_t, const Piece& piece) { _addFile(piece); });
  });
}

void Names::_addFile(const Piece& piece) {
  HitFile*& hit = byFile_[piece.file];
  if (hit == nullptr) {
    files_.emplace_back();
    hit = &files_.back();
    hit->file = piece.file;
    hit->writtenName = converter_.nameOf(piece.file->name);
  }
  hit->samples += piece.samples;
  hit->callers += piece.callers;
}

// Also a recording that was cut before it tells where it comes from, if its kernel lies where this
// one does, from the first byte to the last.
bool Names::_isRecordedHere() {
  if (!isRecordedHere_) {
    const recordings::KernelImage& image = preparation_.processes().kernel();
    const bool tells = !recording_.header().facts.osRelease.empty() || !image.buildId.empty() ||
                       !recorded_.buildIdOf(KERNEL_NAME).empty();
    isRecordedHere_ =
        recorded_.isThisMachine() || (!tells && !options_.otherMachine && isOwnKernel(image));
  }
  return *isRecordedHere_;
}

void Names::_listKernel() {
  const recordings::KernelImage& image = preparation_.processes().kernel();
  listing::Kernel kernel;
  kernel.release = recording_.header().facts.osRelease;
  kernel.buildId = image.buildId.empty() ? recorded_.buildIdOf(KERNEL_NAME) : image.buildId;
  kernel.sameMachine = _isRecordedHere();
  if (kernel.sameMachine && kernel.release.empty() && kernel.buildId.empty()) {
    kernel.release = ownRelease();
  }
  kernel.start = image.start;
  kernel.end = image.farthestEnd;
  kernel.referenceName = image.referenceName;
  kernel.referenceAddress = image.referenceAddress;
  if (!recording_.folder().empty()) {
    kernel.kallsymsBeside = recording_.folder() + "/kcore_dir/kallsyms";
  }
  preparation_.processes().kernelCode().maps.forEach([&](const recordings::Mapping& mapping) {
    if (mapping.file->kind == MappedFile::Kind::MODULE && byFile_.contains(mapping.file)) {
      kernel.modules.push_back({mapping.file->name, mapping.file->path, mapping.start, mapping.end,
                                recorded_.buildIdOf(*mapping.file)});
    }
  });
  if (kernelHits_ > 0 || !kernel.modules.empty()) {
    kernel_ = listing::listKernel(kernel, options_, converter_.listFolder());
    if (hasKernelList()) {
      kernelListPath_ = converter_.addKernelList(kernel_.list);
    }
  }
  for (HitFile& hit : files_) {
    _listKernelCode(hit);
  }
}

// Modules have lists of their own; a program that the kernel made is one function.
void Names::_listKernelCode(HitFile& hit) {
  if (hit.file->kind == MappedFile::Kind::MODULE) {
    const auto list = kernel_.moduleLists.find(hit.file->name);
    hit.listing.outcome = kernel_.outcome;
    if (list != kernel_.moduleLists.end()) {
      hit.listPath = list->second;
      converter_.addList(hit.writtenName, hit.listPath);
    } else if (hasKernelList()) {
      hit.listing.outcome = listing::Outcome::NoSymbols;
    }
  } else if (hit.file->kind == MappedFile::Kind::KERNEL_CODE) {
    std::map<std::uint64_t, std::uint64_t> ranges;
    preparation_.plainProcesses().forEach([&](std::uint32_t, const PlainProcess& process) {
      process.placement.forEach([&](std::uint64_t, const Piece& piece) {
        if (piece.file == hit.file) {
          ranges[piece.low - piece.base] = piece.high - piece.base;
        }
      });
    });
    listing::ListText list;
    std::uint64_t end = 0;
    for (const auto& [low, high] : ranges) {
      if (end != 0 && end < low) {
        list.addUnknown(end);
      }
      if (low >= end) {
        list.add(low, hit.file->name);
      }
      end = std::max(end, high);
    }
    list.addUnknown(end);
    hit.listPath = converter_.addListText(hit.writtenName, list.text());
    hit.listing.outcome = listing::Outcome::Named;
  }
}

// The address in the file's list of where the piece begins. The converter subtracts the map's start
// from an address and adds this.
std::uint64_t Names::_pageOffset(const Piece& piece) const {
  return byFile_.at(piece.file)->listedAddress(piece.low - piece.base);
}

std::uint64_t HitFile::listedAddress(std::uint64_t fileOffset) const {
  return listing.layout.addressOfOffset(fileOffset).value_or(fileOffset);
}

void Names::write(PlainRecording& output) const {
  const recordings::KernelImage& kernel = preparation_.processes().kernel();
  if (kernel.start != kernel.end && (!kernel.isAssumed || kernelHits_ > 0)) {
    output.addMap(NO_PID, 0, kernel.start, kernel.end - kernel.start, kernel.referenceAddress,
                  KERNEL_NAME + kernel.referenceName, true);
  }
  preparation_.processes().kernelCode().maps.forEach([&](const recordings::Mapping& mapping) {
    if (byFile_.contains(mapping.file)) {
      const std::string& name =
          mapping.file->path.empty() ? mapping.file->name : mapping.file->path;
      output.addMap(NO_PID, 0, mapping.start, mapping.end - mapping.start, 0, name, true);
    }
  });
  _writeMaps(output);
  preparation_.threads().forEach([&](std::uint32_t tid, const SampledThread& thread) {
    output.addName(thread.pid, tid, thread.name.empty() ? numberName(thread) : thread.name);
  });
  preparation_.plainProcesses().forEach([&](std::uint32_t pid, const PlainProcess& process) {
    if (!process.name.empty() && !preparation_.threads().contains(pid)) {
      output.addName(pid, pid, process.name);  // only whose other threads were sampled
    }
  });
}

void Names::_writeMaps(PlainRecording& output) const {
  const recordings::KernelImage& kernel = preparation_.processes().kernel();
  preparation_.plainProcesses().forEach([&](std::uint32_t pid, const PlainProcess& process) {
    if (process.kernelHits > 0 && !hasKernelList()) {
      output.addMap(pid, pid, kernel.start, kernel.farthestEnd - kernel.start, kernel.start,
                    KERNEL_NAME, false);
    }
    process.placement.forEach([&](std::uint64_t written, const Piece& piece) {
      output.addMap(pid, pid, written, piece.high - piece.low, _pageOffset(piece),
                    byFile_.at(piece.file)->writtenName, false);
    });
  });
}

}  // namespace prepare
