#include "unwinding/FileFrames.h"

#include <algorithm>
#include <elf.h>
#include <utility>

#include "unwinding/CodePatterns.h"

namespace unwinding {

namespace {

// Where .eh_frame is, as .eh_frame_hdr begins: version, three encodings, a pointer. Linkers write
// it in 32 bits from its own place.
std::optional<std::uint64_t> ehFrameAddressOf(const ElfImage::Section& header) {
  constexpr std::uint8_t FROM_HERE_32_BITS = 0x1b;
  ByteCursor in(header.bytes);
  const std::uint8_t version = in.takeByte();
  const std::uint8_t encoding = in.takeByte();
  in.skip(2);
  const std::int64_t distance = in.takeSigned(4);
  if (!in.ok() || version != 1 || encoding != FROM_HERE_32_BITS) {
    return std::nullopt;
  }
  return header.address + 4 + static_cast<std::uint64_t>(distance);
}

}  // namespace

std::unique_ptr<FileFrames> FileFrames::open(const std::string& path,
                                             const std::string& debugPath) {
  const std::unique_ptr<ElfImage> image = ElfImage::open(path);
  if (image == nullptr) {
    return nullptr;
  }
  std::unique_ptr<FileFrames> frames(new FileFrames(path));
  frames->machine_ = image->machine();
  frames->segments_ = image->segments();
  frames->_noteCode(*image);
  frames->_readTables(*image);
  if (!debugPath.empty() && debugPath != path) {
    const std::unique_ptr<ElfImage> debug = ElfImage::open(debugPath);
    if (debug != nullptr && debug->machine() == image->machine()) {
      frames->_addTable(CallFrameTable::Form::DebugFrame, debug->section(".debug_frame"));
    }
  }
  return frames;
}

void FileFrames::_readTables(const ElfImage& image) {
  _readEhFrame(image);
  _addTable(CallFrameTable::Form::DebugFrame, image.section(".debug_frame"));
  if (machine_ == Machine::Arm) {
    _readExceptionIndex(image);
  }
}

void FileFrames::_readEhFrame(const ElfImage& image) {
  std::optional<ElfImage::Section> section = image.section(".eh_frame");
  if (!section) {  // no section headers: what lies behind it as well, which reads as nothing
    const std::optional<ElfImage::Section> header = image.header(PT_GNU_EH_FRAME);
    const std::optional<std::uint64_t> address = header ? ehFrameAddressOf(*header) : std::nullopt;
    section = address ? image.restOfSegment(*address) : std::nullopt;
  }
  _addTable(CallFrameTable::Form::EhFrame, std::move(section));
}

void FileFrames::_addTable(CallFrameTable::Form form, std::optional<ElfImage::Section> section) {
  if (!section || section->bytes.empty()) {
    return;
  }
  auto table =
      std::make_unique<CallFrameTable>(machine_, form, std::move(section->bytes), section->address,
                                       [this](std::uint64_t address) { return _isCode(address); });
  if (table->entries() > 0) {
    tables_.push_back(std::move(table));
  }
}

void FileFrames::_readExceptionIndex(const ElfImage& image) {
  std::optional<ElfImage::Section> index = image.section(".ARM.exidx");
  std::optional<ElfImage::Section> extra = image.section(".ARM.extab");
  if (!index) {  // no section headers: the rest lies before it in the same segment
    index = image.header(PT_ARM_EXIDX);
    for (const ElfImage::Segment& each : segments_) {
      if (index && index->address >= each.address && index->address - each.address < each.size) {
        extra = image.restOfSegment(each.address);
      }
    }
  }
  if (index) {
    ExceptionIndex::Table none;
    exceptionIndex_ = std::make_unique<ExceptionIndex>(
        ExceptionIndex::Table{index->address, std::move(index->bytes)},
        extra ? ExceptionIndex::Table{extra->address, std::move(extra->bytes)} : none);
  }
}

void FileFrames::_noteCode(const ElfImage& image) {
  std::vector<Range> all;
  for (const ElfImage::Segment& each : image.segments()) {
    if (each.executable && each.size <= ~each.address) {
      all.push_back({each.address, each.address + each.size});
    }
  }
  std::sort(all.begin(), all.end(),
            [](const Range& a, const Range& b) { return a.start < b.start; });
  for (const Range& each : all) {
    if (!code_.empty() && each.start <= code_.back().end) {
      code_.back().end = std::max(code_.back().end, each.end);
    } else {
      code_.push_back(each);
    }
  }
}

bool FileFrames::_isCode(std::uint64_t address) const {
  const auto after =
      std::upper_bound(code_.begin(), code_.end(), address,
                       [](std::uint64_t value, const Range& each) { return value < each.start; });
  return after != code_.begin() && address < std::prev(after)->end;
}

const ElfImage::Segment* FileFrames::_segmentOf(std::uint64_t offset) const {
  const ElfImage::Segment* found = nullptr;
  for (const ElfImage::Segment& each : segments_) {
    if (offset >= each.offset && offset - each.offset < each.size &&
        (found == nullptr || (each.executable && !found->executable))) {
      found = &each;
    }
  }
  return found;
}

bool FileFrames::find(std::uint64_t offset, bool isReturnAddress, FrameRule& rule) const {
  const std::uint64_t pcOffset = isReturnAddress ? offset + 1 : offset;
  const ElfImage::Segment* const segment = _segmentOf(offset);
  bool found = false;
  if (segment != nullptr) {
    const std::uint64_t address = offset - segment->offset + segment->address;
    for (std::size_t i = 0; i < tables_.size() && !found; ++i) {
      found = tables_[i]->find(address, rule);
    }
    if (!found && exceptionIndex_ != nullptr) {
      found = exceptionIndex_->find(address, rule);
    }
  }
  // Arm's kernels describe a trampoline by less than what is on the stack, its C libraries as the
  // end of the stack.
  const bool doubtful = found && machine_ != Machine::X86_64 && machine_ != Machine::X86 &&
                        (rule.signal || rule.kind == FrameRule::Kind::Outermost);
  FrameRule better;
  if (!found || doubtful) {
    if (_recognise(pcOffset, better, recogniseSignalReturn) ||
        (!found && _recognise(pcOffset, better, recogniseLinkageEntry))) {
      rule = better;
      found = true;
    }
  }
  if (!found) {
    rule = FrameRule();
  }
  rule.toAddress = segment == nullptr ? 0 : segment->address - segment->offset;
  return found;
}

bool FileFrames::_recognise(std::uint64_t pcOffset, FrameRule& rule,
                            bool (*recogniser)(Machine, Bytes, FrameRule&)) const {
  if (pcOffset < CODE_BEFORE) {
    return false;
  }
  const std::vector<unsigned char> code =
      readFile(path_, pcOffset - CODE_BEFORE, CODE_BEFORE + CODE_BEHIND);
  return code.size() > CODE_BEFORE && recogniser(machine_, code, rule);
}

std::optional<std::uint64_t> FileFrames::read(std::uint64_t offset, unsigned size) const {
  const ElfImage::Segment* const segment = _segmentOf(offset);
  if (segment == nullptr || segment->writable) {
    return std::nullopt;
  }
  const std::vector<unsigned char> bytes = readFile(path_, offset, size);
  return bytes.size() == size ? std::optional<std::uint64_t>(ByteCursor(bytes).takeUnsigned(size))
                              : std::nullopt;
}

std::size_t FileFrames::size() const {
  std::size_t sum = exceptionIndex_ == nullptr ? 0 : exceptionIndex_->size();
  for (const auto& each : tables_) {
    sum += each->size();
  }
  return sum;
}

}  // namespace unwinding
