// The file format of speedscope (https://www.speedscope.app/file-format-schema.json): a sampled
// profile for each thread, with the largest first. Weights are seconds: a sample lasts until the
// next one of its thread, at most one and a half times their median distance; what is left is a gap
// without a stack.
#pragma once

#include <iosfwd>

#include "report/Profile.h"
#include "report/RecordingFacts.h"

namespace report {

void writeSpeedscope(std::ostream& out, const Profile& profile, const RecordingFacts& facts);

}  // namespace report
