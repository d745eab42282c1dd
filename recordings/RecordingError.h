// Why a recording cannot be read at all: one sentence that names the file, what is wrong and, where
// there is something, what to do. Damage further on is no error: see Damage in RecordStream.h.
#pragma once

#include <stdexcept>

namespace recordings {

class RecordingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace recordings
