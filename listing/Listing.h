// Symbol lists for the files of a recording: every function by the name that `perf script` gives
// it. The entry of this library; ListText.h has the format of the lists, SymbolRanges.h which name
// an address gets, DebugFiles.h where symbols are looked for, Kernel.h lists the kernel.
//
// Nothing is run and nothing is written but lists and the cache. Mapped names are anybody's: only
// regular files are opened (RegularFile.h), and what they hold is read in child processes
// (ChildPool.h).
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "listing/File.h"
#include "listing/Options.h"

namespace listing {

// Lists all of them, on all processors; results are in the order of the files. `workDir` exists and
// takes the lists: links into the cache where that is on the same file system, so they are to be
// read only, and removed freely. `progress(done, all)` is called here, in the calling thread; it
// may be empty. One thread, and no other thread of the program may hold locks meanwhile (children
// are forked).
std::vector<Result> listFiles(const std::vector<File>& files, const Options& options,
                              const std::string& workDir,
                              const std::function<void(std::size_t, std::size_t)>& progress);

}  // namespace listing
