#include "listing/SourceFiles.h"

#include "listing/ElfFile.h"

namespace listing {

void SourceFiles::read(ElfFile&, const std::vector<std::uint64_t>&) {}

std::string_view SourceFiles::fileOf(std::size_t function) const {
  return function < files_.size() && files_[function] > 0
             ? std::string_view(names_[files_[function] - 1])
             : std::string_view();
}

}  // namespace listing
