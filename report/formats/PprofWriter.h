// profile.proto, gzip-compressed, as pprof reads it: samples added up by thread and stack, with the
// thread and process as labels. pprof has no place for the time of a sample; the whole length is in
// duration_nanos.
#pragma once

#include <iosfwd>

#include "report/Profile.h"
#include "report/RecordingFacts.h"

namespace report {

void writePprof(std::ostream& out, const Profile& profile, const RecordingFacts& facts);

}  // namespace report
