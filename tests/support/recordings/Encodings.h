// Every encoding that can hold a recording of one event, by a name for messages: for tests that
// write one content in all of them.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/support/recordings/Encoding.h"

namespace made {

std::vector<std::pair<std::string, Encoding>> allEncodings();

}  // namespace made
