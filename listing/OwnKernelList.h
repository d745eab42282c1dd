// The list of this machine's running kernel, kept between runs: to read /proc/kallsyms, to sort it
// and to write the list takes a tenth of a second, and the answer is the same until the machine is
// started again. Modules come and go, so they are no part of it. One thread.
//
// What is kept is found again by all that it depends on: the boot, the running kernel, what the
// kernel shows to this user (the first lines tell whether addresses are hidden), and how the
// recording asks for it (range and reference symbol).
#pragma once

#include <string>

#include "listing/Kernel.h"
#include "listing/ListCache.h"
#include "listing/Options.h"

namespace listing {

class OwnKernelList {
 public:
  // Where the system tells of itself.
  struct Places {
    std::string kallsyms = "/proc/kallsyms";
    std::string bootId = "/proc/sys/kernel/random/boot_id";
    std::string notes = "/sys/kernel/notes";
  };

  OwnKernelList(const Kernel& kernel, const Options& options, Places places);

  // Puts the list of an earlier run to `path`, which must not exist. False: none is kept.
  bool take(const std::string& path);
  // Keeps a copy of the list at `path`.
  void keep(const std::string& path);

 private:
  Places places_;
  ListCache cache_;
  std::string source_;  // empty: the system does not say what boot this is
};

}  // namespace listing
