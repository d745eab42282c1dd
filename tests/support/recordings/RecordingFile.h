// Writes a recording in an encoding. A recording whose records stand in the order of time says the
// same in every encoding, except that
// - without sample_id_all, only Fork and Exit have a time among the records that are no samples,
// - MMAP has neither device and inode nor protection, MMAP2 has one of inode and build id,
// - pipes and short headers lack what belongs to feature sections that they do not have.
#pragma once

#include <map>
#include <string>

#include "tests/support/recordings/Encoding.h"
#include "tests/support/recordings/Recording.h"

namespace made {

// All bytes of the file. Throws what RecordEncoder and CompressedStream throw.
std::string fileBytes(const Recording& recording, const Encoding& encoding = {});

// The files of the folder that `perf record --threads` writes, by name: "data" has the header and
// what perf made by itself, "data.N" the bare records of processor N, without rounds, each
// compressed as a stream of its own. The encoding's form has to be FILE (std::invalid_argument).
std::map<std::string, std::string> folderFiles(const Recording& recording,
                                               const Encoding& encoding = {});

}  // namespace made
