// Why nothing could be prepared, other than the recording itself: one sentence that names the file,
// what was wrong and what to do.
#pragma once

#include <stdexcept>

namespace prepare {

class PrepareError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace prepare
