// Reads a document of the converter (docs/output-format.md) into a Profile. The samples are read in
// pieces, so that memory holds their columns and not their text; the other tables are read whole.
#pragma once

#include <functional>
#include <string>

#include "report/Profile.h"

namespace report {

// Told now and then how many bytes of the document have been read.
using ReadingProgress = std::function<void(uint64_t bytes)>;

// Throws ReportError naming the file: when it cannot be read, is no document, lacks tables (a
// conversion that failed), or holds more than one (the option -a of the converter).
Profile readDocument(const std::string& path, const ReadingProgress& progress = {});

}  // namespace report
