// A recording that comes through standard input.
#pragma once

#include <memory>
#include <string>

#include "recordings/Input.h"

namespace prepare {

// A file is read where it stands; a pipe is copied to a file without a name in `scratchDirectory`
// first, since a recording may have to be read twice.
std::unique_ptr<recordings::Input> openStandardInput(const std::string& scratchDirectory);

}  // namespace prepare
