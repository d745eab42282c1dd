// The kernel marks the name of a file that is gone with " (deleted)".
#pragma once

#include <string>

// Cuts the mark and everything after it off `name`.
inline void cutDeletedSuffix(std::string& name) {
  const std::size_t mark = name.find(" (deleted)");
  if (mark != std::string::npos) {
    name.erase(mark);
  }
}
