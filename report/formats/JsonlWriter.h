// A JSON object a line and a sample, with names instead of keys, for databases (docs/formats.md has
// its members). What the recording does not tell is null.
#pragma once

#include <iosfwd>

#include "report/Profile.h"
#include "report/RecordingFacts.h"

namespace report {

void writeJsonl(std::ostream& out, const Profile& profile, const RecordingFacts& facts);

}  // namespace report
