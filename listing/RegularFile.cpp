#include "listing/RegularFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace listing {

namespace {

constexpr int FLAGS = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// As if `root` were the root directory, links and ".." included. ENOSYS before Linux 5.6.
int _openInRoot(const std::string& root, const std::string& name) {
  const int directory = ::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (directory == -1) {
    return -1;
  }
  open_how how{};
  how.flags = FLAGS;
  how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
  const long descriptor = ::syscall(SYS_openat2, directory, name.c_str(), &how, sizeof(how));
  const int reason = errno;
  ::close(directory);
  errno = reason;
  return static_cast<int>(descriptor);
}

std::string _pathOf(int descriptor, const std::string& otherwise) {
  char path[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = ::readlink(link.c_str(), path, sizeof(path));
  return length > 0 && path[0] == '/' ? std::string(path, static_cast<std::size_t>(length))
                                      : otherwise;
}

}  // namespace

RegularFile::RegularFile(int descriptor, std::string path)
    : descriptor_(descriptor), path_(std::move(path)) {}

RegularFile::RegularFile(RegularFile&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)),
      path_(std::move(other.path_)),
      size_(other.size_),
      changed_(other.changed_) {}

RegularFile& RegularFile::operator=(RegularFile&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  std::swap(path_, other.path_);
  std::swap(size_, other.size_);
  std::swap(changed_, other.changed_);
  return *this;
}

RegularFile::~RegularFile() {
  if (descriptor_ != -1) {
    ::close(descriptor_);
  }
}

std::optional<RegularFile> RegularFile::_take(int descriptor, const std::string& path) {
  if (descriptor == -1) {
    return std::nullopt;
  }
  RegularFile file(descriptor, path);
  struct stat status;
  if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  file.size_ = static_cast<std::uint64_t>(std::max<off_t>(status.st_size, 0));
  file.changed_ = std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
  return file;
}

std::optional<RegularFile> RegularFile::open(const std::string& path) {
  return _take(::open(path.c_str(), FLAGS), path);
}

std::optional<RegularFile> RegularFile::openBelow(const std::string& root,
                                                  const std::string& name) {
  if (name.empty() || name.front() != '/') {
    return std::nullopt;
  }
  if (root.empty() || root == "/") {
    return open(name);
  }
  const int descriptor = _openInRoot(root, name);
  if (descriptor == -1 && errno == ENOSYS) {
    return name.find("/../") == std::string::npos ? open(root + name) : std::nullopt;
  }
  return _take(descriptor, descriptor == -1 ? "" : _pathOf(descriptor, root + name));
}

std::string RegularFile::identity() const {
  return path_ + '\n' + std::to_string(size_) + '\n' + std::to_string(changed_);
}

bool RegularFile::read(std::uint64_t offset, void* bytes, std::size_t size) const {
  char* to = static_cast<char*>(bytes);
  while (size > 0) {
    if (offset > static_cast<std::uint64_t>(INT64_MAX)) {
      return false;
    }
    const ssize_t count = ::pread(descriptor_, to, size, static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return false;
    }
    to += count;
    offset += static_cast<std::uint64_t>(count);
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

std::string RegularFile::readText(std::size_t limit) const {
  std::string text;
  text.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(size_, limit)));
  // The kernel hands out its lists a page at a time whatever is asked for: no piece is made ready
  // anew for each.
  std::array<char, 1 << 16> piece;
  while (text.size() < limit) {
    ssize_t count;
    do {
      count = ::pread(descriptor_, piece.data(), std::min(piece.size(), limit - text.size()),
                      static_cast<off_t>(text.size()));
    } while (count < 0 && errno == EINTR);
    if (count <= 0) {
      break;
    }
    text.append(piece.data(), static_cast<std::size_t>(count));
  }
  return text;
}

}  // namespace listing
