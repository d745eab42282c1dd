#include "prepare/StandardInput.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "prepare/PrepareError.h"
#include "recordings/SortedRun.h"

namespace prepare {

namespace {

constexpr char NAME[] = "standard input";

// The scratch file as an input.
class SpooledInput : public recordings::Input {
 public:
  explicit SpooledInput(const std::string& directory) : Input(NAME), file_(directory) {
    std::vector<unsigned char> block(256 * 1024);
    for (;;) {
      const ssize_t got = ::read(STDIN_FILENO, block.data(), block.size());
      if (got == 0) {
        return;
      }
      if (got > 0) {
        file_.append(block.data(), static_cast<std::size_t>(got));
      } else if (errno != EINTR) {
        throw PrepareError(std::string(NAME) + ": cannot be read: " + std::strerror(errno) + ".");
      }
    }
  }
  std::uint64_t size() const override { return file_.size(); }
  std::size_t read(std::uint64_t offset, unsigned char* to, std::size_t count) const override {
    if (offset >= size()) {
      return 0;
    }
    const auto taken = static_cast<std::size_t>(std::min<std::uint64_t>(count, size() - offset));
    file_.read(offset, to, taken);
    return taken;
  }

 private:
  recordings::ScratchFile file_;
};

}  // namespace

std::unique_ptr<recordings::Input> openStandardInput(const std::string& scratchDirectory) {
  struct stat status {};
  if (fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode)) {
    return std::make_unique<recordings::FileInput>(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0), NAME);
  }
  if (isatty(STDIN_FILENO) == 1) {
    throw PrepareError(
        "standard input: is a terminal. Pipe a recording in: perf record -o - ... | "
        "tracemill-prepare -");
  }
  return std::make_unique<SpooledInput>(scratchDirectory);
}

}  // namespace prepare
