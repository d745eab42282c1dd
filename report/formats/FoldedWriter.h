// Folded stacks: a line `process;outermost;...;innermost count` for each different chain of a
// process, as flame graph programs read them. Semicolons in names become colons, line feeds blanks.
#pragma once

#include <iosfwd>

#include "report/Profile.h"

namespace report {

void writeFolded(std::ostream& out, const Profile& profile);

}  // namespace report
