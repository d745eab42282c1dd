#include "prepare/TouchedLines.h"

#include <bit>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string_view>

#include "recordings/Input.h"
#include "recordings/RecordingError.h"

namespace prepare {

namespace {

constexpr std::size_t ADDRESS_DIGITS = 16;
constexpr std::size_t BLOCK = 128 * 1024;
// Some ten lines: of most lists, fewer are touched.
constexpr std::size_t HOP = 1024;

// Eight lower-case hexadecimal digits.
std::uint64_t numberOf(const char* digits) {
  std::uint64_t text;
  std::memcpy(&text, digits, sizeof text);
  if constexpr (std::endian::native == std::endian::little) {
    text = __builtin_bswap64(text);
  }
  std::uint64_t number = (text & 0x0f0f0f0f0f0f0f0f) + 9 * (text >> 6 & 0x0101010101010101);
  number = (number | number >> 4) & 0x00ff00ff00ff00ff;
  number = (number | number >> 8) & 0x0000ffff0000ffff;
  return (number | number >> 16) & 0xffffffff;
}

// Goes through a list piece by piece and writes what stays.
class LineFilter {
 public:
  LineFilter(const std::vector<std::pair<std::uint64_t, std::uint64_t>>& ranges, std::ostream& kept)
      : ranges_(ranges), kept_(kept) {}

  // The number of bytes that are done with; the others are to come again, with more behind them,
  // until there is nothing more.
  std::size_t take(std::string_view text, bool isEnd) {
    std::size_t at = 0;
    while (!isDone()) {
      const std::size_t next = _lineBehind(text, at);
      const bool isLast = isEnd && next + ADDRESS_DIGITS > text.size();
      if (at == text.size() || (!isLast && next + ADDRESS_DIGITS > text.size())) {
        break;
      }
      const std::uint64_t begin = _addressAt(text, at);
      const bool isTouched = _isTouched(begin, isLast ? UINT64_MAX : _addressAt(text, next) - 1);
      if (isTouched || isEndWanted_) {
        const std::size_t end = std::min(next, text.size());
        kept_.write(text.data() + at, static_cast<std::streamsize>(end - at));
      }
      isEndWanted_ = isTouched;
      at = isTouched ? next : _hop(text, next);
      if (isLast) {
        break;
      }
    }
    return std::min(at, text.size());
  }

  // Nothing more of the list stays.
  bool isDone() const { return next_ == ranges_.size() && !isEndWanted_; }

 private:
  // Where the next line begins; behind the end of the text if it is not known yet.
  static std::size_t _lineBehind(std::string_view text, std::size_t at) {
    const std::size_t end = text.find('\n', at);
    return end == std::string_view::npos ? text.size() + 1 : end + 1;
  }
  static std::uint64_t _addressAt(std::string_view text, std::size_t at) {
    return at + ADDRESS_DIGITS > text.size()
               ? 0
               : numberOf(text.data() + at) << 32 | numberOf(text.data() + at + 8);
  }
  // Past lines that end before the next range.
  std::size_t _hop(std::string_view text, std::size_t at) const {
    while (next_ < ranges_.size() && at + HOP < text.size()) {
      const std::size_t line = _lineBehind(text, at + HOP);
      if (line + ADDRESS_DIGITS > text.size() || _addressAt(text, line) > ranges_[next_].first) {
        break;
      }
      at = line;
    }
    return at;
  }
  // Whether a range touches [begin, end].
  bool _isTouched(std::uint64_t begin, std::uint64_t end) {
    while (next_ < ranges_.size() && ranges_[next_].second < begin) {
      ++next_;
    }
    return next_ < ranges_.size() && ranges_[next_].first <= end;
  }

  const std::vector<std::pair<std::uint64_t, std::uint64_t>>& ranges_;
  std::ostream& kept_;
  std::size_t next_ = 0;
  bool isEndWanted_ = false;  // the next line is where a symbol that stays ends
};

void copyTouched(const std::string& listPath, LineFilter& filter) {
  const recordings::FileInput file(listPath);
  std::string text;
  std::size_t begun = 0;  // bytes that the filter has not done with
  std::size_t got = 1;
  for (std::uint64_t at = 0; got > 0 && !filter.isDone(); at += got) {
    text.resize(begun + BLOCK);
    got = file.read(at, reinterpret_cast<unsigned char*>(text.data()) + begun, BLOCK);
    const std::string_view known(text.data(), begun + got);
    const std::size_t done = filter.take(known, got == 0);
    begun = known.size() - done;
    std::memmove(text.data(), text.data() + done, begun);
  }
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
