// A recording of this machine in which every function of both its vdsos was hit.
#pragma once

#include <cstdint>
#include <sys/utsname.h>

#include "tests/support/recordings/RecordingFile.h"

// The process of 32 bits is 10, that of 64 bits 20.
inline made::Recording recordingOfBothVdsos() {
  constexpr std::uint64_t PLACES[] = {0xf7f00000, 0x7f0000000000};
  constexpr std::uint64_t LENGTH = 0x2000;
  utsname system{};
  made::Recording recording;
  if (uname(&system) == 0) {
    recording.hostname = system.nodename;
    recording.osRelease = system.release;
  }
  std::uint32_t pid = 0;
  for (const std::uint64_t place : PLACES) {
    pid += 10;
    recording.map({.pid = pid, .tid = pid, .address = place, .length = LENGTH, .file = "[vdso]"});
    for (std::uint64_t offset = 0; offset < LENGTH; offset += 16) {
      recording.sample({.ip = place + offset, .pid = pid, .tid = pid, .time = pid});
    }
  }
  return recording;
}
