// A thread, or a process: the entry whose tid equals its pid.
#pragma once

#include <cstdint>
#include <string>

struct ThreadInfo {
  uint32_t pid = 0;
  uint32_t tid = 0;
  uint32_t refCount = 0;  // references made by the document: samples, maps of the process
  std::string name;
};
