#include "unwinding/ElfImage.h"

#include <cstring>
#include <fcntl.h>
#include <gelf.h>
#include <libelf.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace unwinding {

namespace {

constexpr std::uint64_t MOST_SEGMENTS = 4096;  // a process has few; each address looks through them

// A regular file for reading, and its size; never waits, never becomes a terminal. -1 when none.
int openRegular(const std::string& path, std::uint64_t& size) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  struct stat status {};
  if (descriptor >= 0 && (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode))) {
    ::close(descriptor);
    return -1;
  }
  size = static_cast<std::uint64_t>(status.st_size);
  return descriptor;
}

// As many as there are.
std::vector<unsigned char> readAt(int descriptor, std::uint64_t offset, std::size_t size) {
  std::vector<unsigned char> bytes(size);
  std::size_t done = 0;
  while (done < size && offset <= std::uint64_t{std::numeric_limits<off_t>::max()} - size) {
    const ssize_t count =
        ::pread(descriptor, bytes.data() + done, size - done, static_cast<off_t>(offset + done));
    if (count <= 0) {
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  bytes.resize(done);
  return bytes;
}

std::optional<Machine> machineOf(const GElf_Ehdr& header) {
  const bool is64 = header.e_ident[EI_CLASS] == ELFCLASS64;
  if (header.e_ident[EI_DATA] != ELFDATA2LSB) {
    return std::nullopt;
  }
  if (header.e_machine == EM_X86_64 && is64) {
    return Machine::X86_64;
  }
  if (header.e_machine == EM_386 && !is64) {
    return Machine::X86;
  }
  if (header.e_machine == EM_ARM && !is64) {
    return Machine::Arm;
  }
  if (header.e_machine == EM_AARCH64 && is64) {
    return Machine::Arm64;
  }
  return std::nullopt;
}

}  // namespace

struct ElfImage::Handle {
  int descriptor = -1;
  std::uint64_t size = 0;
  Elf* elf = nullptr;

  ~Handle() {
    if (elf != nullptr) {
      ::elf_end(elf);
    }
    if (descriptor >= 0) {
      ::close(descriptor);
    }
  }
};

ElfImage::ElfImage(std::unique_ptr<Handle> handle) : handle_(std::move(handle)) {}
ElfImage::~ElfImage() = default;

std::unique_ptr<ElfImage> ElfImage::open(const std::string& path) {
  static const bool ready = ::elf_version(EV_CURRENT) != EV_NONE;
  auto handle = std::make_unique<Handle>();
  handle->descriptor = openRegular(path, handle->size);
  if (!ready || handle->descriptor < 0) {
    return nullptr;
  }
  handle->elf = ::elf_begin(handle->descriptor, ELF_C_READ, nullptr);
  if (handle->elf == nullptr) {
    return nullptr;
  }
  std::unique_ptr<ElfImage> image(new ElfImage(std::move(handle)));
  return image->_readHeaders() ? std::move(image) : nullptr;
}

bool ElfImage::_readHeaders() {
  GElf_Ehdr header;
  if (::elf_kind(handle_->elf) != ELF_K_ELF || ::gelf_getehdr(handle_->elf, &header) == nullptr) {
    return false;
  }
  const std::optional<Machine> machine = machineOf(header);
  if (!machine) {
    return false;
  }
  machine_ = *machine;
  _readSegments();
  if (segments_.empty()) {
    _readSectionsAsSegments();
  }
  return true;
}

void ElfImage::_readSegments() {
  std::size_t count = 0;
  if (::elf_getphdrnum(handle_->elf, &count) != 0) {
    return;
  }
  for (std::size_t i = 0; i < count && segments_.size() < MOST_SEGMENTS; ++i) {
    GElf_Phdr each;
    if (::gelf_getphdr(handle_->elf, static_cast<int>(i), &each) == nullptr) {
      return;
    }
    if (each.p_type == PT_LOAD) {
      segments_.push_back({each.p_offset, each.p_vaddr, each.p_filesz, (each.p_flags & PF_X) != 0,
                           (each.p_flags & PF_W) != 0});
    }
  }
}

void ElfImage::_readSectionsAsSegments() {
  Elf_Scn* section = nullptr;
  while (segments_.size() < MOST_SEGMENTS &&
         (section = ::elf_nextscn(handle_->elf, section)) != nullptr) {
    GElf_Shdr header;
    if (::gelf_getshdr(section, &header) != nullptr && (header.sh_flags & SHF_ALLOC) != 0 &&
        header.sh_type != SHT_NOBITS) {
      segments_.push_back({header.sh_offset, header.sh_addr, header.sh_size,
                           (header.sh_flags & SHF_EXECINSTR) != 0,
                           (header.sh_flags & SHF_WRITE) != 0});
    }
  }
}

std::optional<ElfImage::Section> ElfImage::section(const char* name) const {
  std::size_t names = 0;
  GElf_Shdr header;
  if (::elf_getshdrstrndx(handle_->elf, &names) != 0 ||
      ::gelf_getshdr(::elf_getscn(handle_->elf, names), &header) == nullptr ||
      (header.sh_flags & SHF_COMPRESSED) != 0) {  // libelf would unpack them, whatever their size
    return std::nullopt;
  }
  Elf_Scn* each = nullptr;
  while ((each = ::elf_nextscn(handle_->elf, each)) != nullptr) {
    if (::gelf_getshdr(each, &header) == nullptr || header.sh_type == SHT_NOBITS) {
      continue;
    }
    const char* const text = ::elf_strptr(handle_->elf, names, header.sh_name);
    if (text != nullptr && std::strcmp(text, name) == 0) {
      return (header.sh_flags & SHF_COMPRESSED) != 0
                 ? _unpack(::elf_ndxscn(each))
                 : _read(header.sh_addr, header.sh_offset, header.sh_size);
    }
  }
  return std::nullopt;
}

// In a descriptor of its own, since unpacking changes the headers that it holds.
std::optional<ElfImage::Section> ElfImage::_unpack(std::size_t index) const {
  const std::unique_ptr<Elf, decltype(&::elf_end)> elf(
      ::elf_begin(handle_->descriptor, ELF_C_READ, nullptr), &::elf_end);
  Elf_Scn* const section = ::elf_getscn(elf.get(), index);
  GElf_Shdr header;
  GElf_Chdr packed;
  if (::gelf_getshdr(section, &header) == nullptr || header.sh_size > handle_->size ||
      ::gelf_getchdr(section, &packed) == nullptr || packed.ch_size > LARGEST_SECTION ||
      ::elf_compress(section, 0, 0) < 0) {
    return std::nullopt;
  }
  const Elf_Data* const data = ::elf_getdata(section, nullptr);
  if (data == nullptr || data->d_buf == nullptr) {
    return std::nullopt;
  }
  const auto* const bytes = static_cast<const unsigned char*>(data->d_buf);
  return Section{header.sh_addr, {bytes, bytes + data->d_size}};
}

std::optional<ElfImage::Section> ElfImage::header(std::uint32_t type) const {
  std::size_t count = 0;
  if (::elf_getphdrnum(handle_->elf, &count) != 0) {
    return std::nullopt;
  }
  for (std::size_t i = 0; i < count; ++i) {
    GElf_Phdr each;
    if (::gelf_getphdr(handle_->elf, static_cast<int>(i), &each) == nullptr) {
      break;
    }
    if (each.p_type == type) {
      return _read(each.p_vaddr, each.p_offset, each.p_filesz);
    }
  }
  return std::nullopt;
}

std::optional<ElfImage::Section> ElfImage::restOfSegment(std::uint64_t address) const {
  for (const Segment& each : segments_) {
    if (address >= each.address && address - each.address < each.size) {
      const std::uint64_t skipped = address - each.address;
      return _read(address, each.offset + skipped, each.size - skipped);
    }
  }
  return std::nullopt;
}

std::optional<ElfImage::Section> ElfImage::_read(std::uint64_t address, std::uint64_t offset,
                                                 std::uint64_t size) const {
  if (offset > handle_->size || size > handle_->size - offset || size > LARGEST_SECTION) {
    return std::nullopt;
  }
  return Section{address, readAt(handle_->descriptor, offset, static_cast<std::size_t>(size))};
}

std::vector<unsigned char> readFile(const std::string& path, std::uint64_t offset,
                                    std::size_t size) {
  std::uint64_t fileSize = 0;
  const int descriptor = openRegular(path, fileSize);
  if (descriptor < 0) {
    return {};
  }
  std::vector<unsigned char> bytes = readAt(descriptor, offset, size);
  ::close(descriptor);
  return bytes;
}

}  // namespace unwinding
