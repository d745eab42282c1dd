// What every fuzz target consists of. A target is linked three times: with libFuzzer, which looks
// for inputs that break it (preset `fuzz`), with replay.cpp, which feeds it the files of
// tests/corpus in every preset, and, for recordings, with generate.cpp, which feeds it what
// PerfFileMutator makes up.
//
// A target aborts with one line on standard error when the program breaks a promise that no
// sanitizer watches over. It leaves nothing behind: whatever one input did to the process must not
// show in the next.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The names are libFuzzer's.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

// Sends what the program prints with stdio to standard error nowhere: with millions of broken
// inputs it is noise. Findings are still seen.
void silenceMessages();

// Prints the text and aborts, so that the input counts as a finding.
[[noreturn]] void reportFinding(const std::string& text);

// Reports a finding when `holds` is false.
inline void require(bool holds, const char* promise) {
  if (!holds) {
    reportFinding(promise);
  }
}
