// The tunables of a run and their defaults: the one place that holds them. Reached through
// kestrel::Singleton<PerfSettings>::Instance(); the driver overwrites the fields that have a
// configuration key of the same name, then the kernel's range from its symbol list. Nothing changes
// them after start-up. Addresses are run-time addresses, ranges inclusive at both ends.
#pragma once

#include <cstdint>
#include <string>

struct PerfSettings {
  PerfSettings();

  bool onTargetMode = true;        // key: this machine is the one that was profiled
  bool freezeSymbolCache = false;  // key: use the symbol cache as it stands, never refresh it
  uint32_t maxBackTrace = 16;      // key: most back trace entries of a sample; 0 writes none
  uint32_t timePrecision = 6;      // key: digits of sample times

  uint64_t interruptStart64 = 0xFFFFFFFFFFFF0000;  // the 64-bit interrupt vectors
  uint64_t interruptEnd64 = 0xFFFFFFFFFFFFFFFF;
  uint64_t interruptStart32 = 0xFFFF0000;  // the 32-bit interrupt vectors
  uint64_t interruptEnd32 = 0xFFFFFFFF;
  // The map made for an unmapped address: a mask that gives its start, and its size.
  uint64_t fakePageMask = 0xFFFFFFFFFFFF0000;
  uint64_t fakePageSize = 0x10000;
  // Maps from here on are relocated, unless they are the kernel's.
  uint64_t sharedLibraryBase = 0x40000000;
  uint64_t kernelStartAddress = 0xBF000000;  // key
  uint64_t kernelEndAddress = 0xCF000000;    // key

  std::string kernelProcessName = "kernel";
  uint32_t kernelPid = 0;
  std::string kernelMapName = "kernel";  // also the key of the kernel's symbol list
  uint64_t stackStartAddress = 0xB0000000;
  uint64_t stackEndAddress = 0xBEFFFFFF;
  std::string stackMapName;  // "{stack:<start>-<end>}", from the two addresses above
  uint32_t initPid = 1;
  std::string initProcessName = "*init*";
  std::string blankName = "*BlankName*";  // stands for names too short to be shown

  std::string symbolFileSeachPath = "/";     // key, misspelt so: directories, separated by colons
  std::string symbolCacheDir = "./symbols";  // key
  std::string symbolListCommand = "/usr/bin/nm -nCgl --format=bsd";
  std::string kernelSymbolFile = "/proc/kallsyms";  // key
};
