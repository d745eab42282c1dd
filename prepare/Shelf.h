// Texts by number in a temporary file: what is not needed for now, and costs little memory until it
// is (some 20 bytes each). One thread. Errors of the disk are thrown as recordings::RecordingError.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recordings/SortedRun.h"

namespace prepare {

class Shelf {
 public:
  // The file is made there when it is needed, without a name.
  explicit Shelf(std::string scratchDirectory);

  // Nothing of this number may be there.
  void put(std::uint32_t number, std::string_view text);
  // Nothing if there is none of this number.
  std::optional<std::string> take(std::uint32_t number);
  // The same, but leaves it there. Not const: what is read ahead changes.
  std::string read(std::uint32_t number);
  bool holds(std::uint32_t number) const;
  // Of all texts that are there, ascending.
  std::vector<std::uint32_t> numbers() const;

 private:
  // Of a table that is searched from where the number belongs to the first FREE one.
  struct Entry {
    std::uint32_t number = 0;
    std::uint32_t place = FREE;  // in the file, in units; TAKEN: was there
  };
  static constexpr std::uint32_t FREE = 0;
  static constexpr std::uint32_t TAKEN = 0xffffffff;
  static constexpr std::size_t UNIT = 16;  // bytes

  Entry& _find(std::uint32_t number);
  const Entry* _findThere(std::uint32_t number) const;
  void _grow();
  std::uint32_t _append(std::string_view text);
  std::string _textAt(std::uint32_t place);
  const unsigned char* _bytesAt(std::uint64_t offset, std::size_t count);

  std::string scratchDirectory_;
  std::unique_ptr<recordings::ScratchFile> file_;
  std::string unwritten_;  // behind what is in the file
  std::vector<unsigned char> ahead_;
  std::uint64_t aheadBegin_ = 0;
  std::vector<Entry> entries_;  // as many as a power of two
  std::size_t used_ = 0;        // that are not FREE
};

}  // namespace prepare
