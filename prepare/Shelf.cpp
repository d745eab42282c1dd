#include "prepare/Shelf.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <random>

#include "recordings/RecordingError.h"

namespace prepare {

namespace {

constexpr std::size_t FIRST_ENTRIES = 1024;
constexpr std::size_t WRITTEN_AT_ONCE = 128 * 1024;
constexpr std::size_t READ_AHEAD = 64 * 1024;

// Odd, and nobody who writes a recording can foresee it: so no choice of numbers is a slow one.
std::uint64_t factor() {
  static const std::uint64_t FACTOR = std::uint64_t{std::random_device{}()} << 32 | 0x9E3779B1u;
  return FACTOR;
}

}  // namespace

Shelf::Shelf(std::string scratchDirectory) : scratchDirectory_(std::move(scratchDirectory)) {}

// The entry of the number, or the free one that it may have. There is always one.
Shelf::Entry& Shelf::_find(std::uint32_t number) {
  const int bits = std::countr_zero(entries_.size());
  std::size_t slot = static_cast<std::size_t>(number * factor() >> (64 - bits));
  while (entries_[slot].place != FREE && entries_[slot].number != number) {
    slot = (slot + 1) % entries_.size();
  }
  return entries_[slot];
}

const Shelf::Entry* Shelf::_findThere(std::uint32_t number) const {
  if (entries_.empty()) {
    return nullptr;
  }
  const Entry& entry = const_cast<Shelf*>(this)->_find(number);
  return entry.place == FREE || entry.place == TAKEN ? nullptr : &entry;
}

bool Shelf::holds(std::uint32_t number) const { return _findThere(number) != nullptr; }

void Shelf::_grow() {
  std::vector<Entry> old(std::max(FIRST_ENTRIES, entries_.size() * 2));
  old.swap(entries_);
  used_ = 0;
  for (const Entry& entry : old) {
    if (entry.place != FREE && entry.place != TAKEN) {
      _find(entry.number) = entry;
      ++used_;
    }
  }
}

void Shelf::put(std::uint32_t number, std::string_view text) {
  if (used_ * 4 >= entries_.size() * 3) {
    _grow();
  }
  Entry& entry = _find(number);
  used_ += entry.place == FREE ? 1 : 0;
  entry = {number, _append(text)};
}

std::uint32_t Shelf::_append(std::string_view text) {
  if (file_ == nullptr) {
    file_ = std::make_unique<recordings::ScratchFile>(scratchDirectory_);
    unwritten_.assign(UNIT, '\0');  // place 0 is none
  }
  const std::uint64_t place = (file_->size() + unwritten_.size()) / UNIT;
  if (place >= TAKEN) {
    throw recordings::RecordingError(scratchDirectory_ + ": a temporary file gets too large.");
  }
  const std::uint64_t size = text.size();
  unwritten_.append(reinterpret_cast<const char*>(&size), sizeof size);
  unwritten_.append(text);
  unwritten_.resize((unwritten_.size() + UNIT - 1) / UNIT * UNIT);
  if (unwritten_.size() >= WRITTEN_AT_ONCE) {
    file_->append(reinterpret_cast<const unsigned char*>(unwritten_.data()), unwritten_.size());
    unwritten_.clear();
  }
  return static_cast<std::uint32_t>(place);
}

// Valid until the next call; texts do not lie across the end of what is written.
const unsigned char* Shelf::_bytesAt(std::uint64_t offset, std::size_t count) {
  if (offset >= file_->size()) {
    return reinterpret_cast<const unsigned char*>(unwritten_.data()) + (offset - file_->size());
  }
  if (offset < aheadBegin_ || offset + count > aheadBegin_ + ahead_.size()) {
    ahead_.resize(static_cast<std::size_t>(
        std::min<std::uint64_t>(std::max(count, READ_AHEAD), file_->size() - offset)));
    file_->read(offset, ahead_.data(), ahead_.size());
    aheadBegin_ = offset;
  }
  return ahead_.data() + (offset - aheadBegin_);
}

std::string Shelf::_textAt(std::uint32_t place) {
  const std::uint64_t offset = std::uint64_t{place} * UNIT;
  std::uint64_t size = 0;
  std::memcpy(&size, _bytesAt(offset, sizeof size), sizeof size);
  const auto count = static_cast<std::size_t>(size);
  const unsigned char* const bytes = _bytesAt(offset + sizeof size, count);
  return std::string(reinterpret_cast<const char*>(bytes), count);
}

std::string Shelf::read(std::uint32_t number) {
  const Entry* const entry = _findThere(number);
  return entry == nullptr ? std::string() : _textAt(entry->place);
}

std::optional<std::string> Shelf::take(std::uint32_t number) {
  if (!holds(number)) {
    return std::nullopt;
  }
  Entry& entry = _find(number);
  std::string text = _textAt(entry.place);
  entry.place = TAKEN;
  return text;
}

std::vector<std::uint32_t> Shelf::numbers() const {
  std::vector<std::uint32_t> all;
  for (const Entry& entry : entries_) {
    if (entry.place != FREE && entry.place != TAKEN) {
      all.push_back(entry.number);
    }
  }
  std::sort(all.begin(), all.end());
  return all;
}

}  // namespace prepare
