// What a bundle of a recording holds: chosen by what samples and callers fell into.
#pragma once

#include <cstddef>
#include <string>

#include "listing/Options.h"
#include "prepare/Bundle.h"
#include "prepare/Names.h"
#include "recordings/MappedFiles.h"

namespace prepare {

// The name that a recording has in a bundle.
std::string bundledName(const std::string& recording);

// Adds a recording as it is: a file, or a folder with the files in it.
void addRecording(BundleWriter& bundle, const std::string& recording);

// Adds files, debug files, perf maps, jitdump files, modules, the vdso and the kernel's list, after
// names.find(). How many of the files that were hit cannot be read, and are left out.
std::size_t addHitFiles(BundleWriter& bundle, const Names& names,
                        const recordings::MappedFiles& mapped, const listing::Options& options);

}  // namespace prepare
