#include "listing/FileMapping.h"

#include <algorithm>
#include <sys/mman.h>

#include "listing/RegularFile.h"

namespace listing {

namespace {

constexpr std::uint64_t PAGE = 65536;  // the largest there is

}  // namespace

FileMapping::FileMapping(const RegularFile& file) : size_(static_cast<std::size_t>(file.size())) {
  if (size_ == 0 || size_ != file.size()) {
    return;
  }
  void* const bytes = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_NORESERVE,
                             file.descriptor(), 0);
  bytes_ = bytes == MAP_FAILED ? nullptr : static_cast<char*>(bytes);
}

FileMapping::~FileMapping() {
  if (bytes_ != nullptr) {
    ::munmap(bytes_, size_);
  }
}

void FileMapping::release(std::uint64_t offset, std::uint64_t size) const {
  if (bytes_ == nullptr || offset > size_) {
    return;
  }
  const std::uint64_t end = (offset + std::min<std::uint64_t>(size, size_ - offset)) & ~(PAGE - 1);
  const std::uint64_t start = (offset + PAGE - 1) & ~(PAGE - 1);
  if (start < end) {
    ::madvise(bytes_ + start, static_cast<std::size_t>(end - start), MADV_DONTNEED);
  }
}

}  // namespace listing
