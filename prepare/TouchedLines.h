// Shortens a symbol list to what a recording needs of it, so that reading it costs no more than
// that.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace prepare {

// Rewrites a list as listing/ListText.h has them. There stay the lines of symbols that lie in one
// of the ranges [first, last], which ascend by first and by last, and the line behind each, where
// it ends. A list that cannot be read or replaced stays as it is.
void keepTouchedLines(const std::string& listPath,
                      const std::vector<std::pair<std::uint64_t, std::uint64_t>>& ranges);

}  // namespace prepare
