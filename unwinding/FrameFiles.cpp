#include "unwinding/FrameFiles.h"

#include <utility>

namespace unwinding {

FrameFiles::FrameFiles(Locator locator, std::size_t budget)
    : locator_(std::move(locator)), budget_(budget) {}

const FileFrames* FrameFiles::get(FileId file) {
  Slot* slot = nullptr;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::unique_ptr<Slot>& place = slots_[file];
    if (place == nullptr) {
      place = std::make_unique<Slot>();
    }
    slot = place.get();
  }
  std::call_once(slot->opened, [this, file, slot] { _open(file, *slot); });
  return slot->frames.get();
}

void FrameFiles::_open(FileId file, Slot& slot) {
  const Location location = locator_(file);
  if (location.path.empty() || size_ > budget_) {
    return;
  }
  slot.frames = FileFrames::open(location.path, location.debugPath);
  if (slot.frames != nullptr) {
    size_ += slot.frames->size();
  }
}

}  // namespace unwinding
