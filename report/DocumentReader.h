// Reads a document of the converter (docs/output-format.md) into a Profile. The samples are read in
// pieces, so that memory holds their columns and not their text; the other tables are read whole.
#pragma once

#include <cstdio>
#include <string>

#include "report/Profile.h"

namespace report {

// Throws ReportError naming the file: when it cannot be read, is no document, lacks tables (a
// conversion that failed), or holds more than one (the option -a of the converter).
Profile readDocument(const std::string& path);

// The same from an open file, which may be a pipe; `name` is what messages call it.
Profile readDocument(std::FILE& file, const std::string& name);

}  // namespace report
