// The file that has the symbols of another one: separate debug files in the order in which perf
// looks for them (tools/perf/util/symbol.c, binary_type_symtab), the file itself at the place it
// has there.
#pragma once

#include <string>
#include <vector>

#include "listing/Layout.h"
#include "listing/Options.h"

namespace listing {

struct DebugFile {
  std::string path;  // empty: there is none; the running file's own path if that has symbols
  std::vector<std::string> searched;  // separate files only
};

// `name` is the path in the recorded process, `path` where the running file was found, `layout` its
// own. A file with another build id is not taken; of two without one the debug file must have the
// checksum in .gnu_debuglink.
DebugFile findDebugFile(const std::string& name, const std::string& path, const Layout& layout,
                        const Options& options);

}  // namespace listing
