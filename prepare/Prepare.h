// tracemill-prepare from its command line on: reads a recording, finds names, writes the folder
// that the converter reads, and reports. What main() calls.
#pragma once

namespace prepare {

// The exit status: 0 done, 1 a recording or a disk failed, 2 the command line is wrong. Messages go
// to standard error, one sentence each.
int run(int count, char* const* words);

}  // namespace prepare
