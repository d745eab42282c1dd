#include "prepare/TouchedLines.h"

#include <charconv>
#include <cstdio>
#include <fstream>
#include <string_view>

#include "recordings/Input.h"
#include "recordings/RecordingError.h"

namespace prepare {

namespace {

constexpr std::size_t ADDRESS_DIGITS = 16;
constexpr std::size_t BLOCK = 256 * 1024;

// Takes lines in their order and gives back those that stay.
class LineFilter {
 public:
  LineFilter(const std::vector<std::pair<std::uint64_t, std::uint64_t>>& ranges, std::ostream& kept)
      : ranges_(ranges), kept_(kept) {}

  // `line` with its end of line. A symbol is known to be touched when the next one comes.
  void take(std::string_view line) {
    std::uint64_t address = 0;
    std::from_chars(line.data(), line.data() + std::min(line.size(), ADDRESS_DIGITS), address, 16);
    const bool isTouched = hasLast_ && _isTouched(address - 1);
    if (isTouched || isEndWanted_) {
      _write(last_);
    }
    isEndWanted_ = isTouched;
    last_.assign(line);
    begin_ = address;
    hasLast_ = true;
  }

  void finish() {
    if (hasLast_ && (isEndWanted_ || _isTouched(UINT64_MAX))) {
      _write(last_);
    }
  }

 private:
  // Whether a range touches [begin_, end].
  bool _isTouched(std::uint64_t end) {
    while (next_ < ranges_.size() && ranges_[next_].second < begin_) {
      ++next_;
    }
    return next_ < ranges_.size() && ranges_[next_].first <= end;
  }
  void _write(std::string_view line) {
    kept_.write(line.data(), static_cast<std::streamsize>(line.size()));
  }

  const std::vector<std::pair<std::uint64_t, std::uint64_t>>& ranges_;
  std::ostream& kept_;
  std::size_t next_ = 0;
  std::string last_;
  std::uint64_t begin_ = 0;  // of the last line's symbol
  bool hasLast_ = false;
  bool isEndWanted_ = false;  // the last line is where a symbol that stays ends
};

void copyTouched(const std::string& listPath, LineFilter& filter) {
  const recordings::FileInput file(listPath);
  std::string text;
  std::size_t begun = 0;  // bytes of a line that lies across two blocks
  for (std::uint64_t at = 0;;) {
    text.resize(begun + BLOCK);
    const std::size_t got =
        file.read(at, reinterpret_cast<unsigned char*>(text.data()) + begun, BLOCK);
    at += got;
    std::string_view left(text.data(), begun + got);
    for (std::size_t end = 0; (end = left.find('\n')) != std::string_view::npos;
         left.remove_prefix(end + 1)) {
      filter.take(left.substr(0, end + 1));
    }
    if (got == 0) {
      if (!left.empty()) {
        filter.take(left);
      }
      break;
    }
    begun = left.size();
    text.erase(0, text.size() - BLOCK + got - begun);
  }
  filter.finish();
}

}  // namespace

void keepTouchedLines(const std::string& listPath,
                      const std::vector<std::pair<std::uint64_t, std::uint64_t>>& ranges) {
  // The list may be a link to the one in the cache.
  const std::string shortPath = listPath + ".touched";
  std::ofstream kept(shortPath, std::ios::binary | std::ios::trunc);
  try {
    LineFilter filter(ranges, kept);
    copyTouched(listPath, filter);
  } catch (const recordings::RecordingError&) {
    kept.setstate(std::ios::failbit);
  }
  kept.close();
  if (!kept || std::rename(shortPath.c_str(), listPath.c_str()) != 0) {
    std::remove(shortPath.c_str());
  }
}

}  // namespace prepare
