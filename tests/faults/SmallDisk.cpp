#include "tests/faults/SmallDisk.h"

#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

bool writeLine(const char* path, const std::string& line) {
  std::ofstream out(path);
  out << line << std::flush;
  return out.good();
}

// An ordinary user may mount in name spaces of his own, where he keeps his ids.
bool enterOwnUserSpace() {
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && writeLine("/proc/self/setgroups", "deny") &&
         writeLine("/proc/self/uid_map", user + " " + user + " 1") &&
         writeLine("/proc/self/gid_map", group + " " + group + " 1");
}

// From here on, what is mounted is seen by this process and its children only.
bool enterOwnMounts() {
  return (unshare(CLONE_NEWNS) == 0 || enterOwnUserSpace()) &&
         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace

SmallDisk::SmallDisk(const std::string& folder, std::size_t bytes) : folder_(folder) {
  const std::string options = "mode=0777,size=" + std::to_string(bytes);
  isMounted_ = enterOwnMounts() && mount("none", folder_.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

SmallDisk::~SmallDisk() {
  if (isMounted_) {
    umount2(folder_.c_str(), MNT_DETACH);
  }
}

void SmallDisk::fillUp(std::size_t bytesLeft) const {
  struct statvfs space {};
  statvfs(folder_.c_str(), &space);
  const auto free = static_cast<off_t>(space.f_bfree * space.f_bsize);
  const int file = open((folder_ + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  posix_fallocate(file, 0, free - static_cast<off_t>(bytesLeft));
  close(file);
}

void SmallDisk::empty() const { unlink((folder_ + "/filler").c_str()); }
