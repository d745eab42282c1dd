// Records a program with perf record, with what works on this machine.
#pragma once

#include <string>
#include <vector>

namespace report {

// The options of perf record that work here: the first event of the processor's cycles and the
// system's clock that may be recorded, times of CLOCK_MONOTONIC where they can be had, call chains
// by frame pointers, or by copies of the stack where `program` was built without them. Throws
// ReportError when nothing can be recorded.
std::vector<std::string> recordingOptions(const std::string& program);

// Whether the code of an ELF file keeps frame pointers, judged by how its functions begin. False
// for what cannot be read; true where the processor's convention asks for them (64-bit Arm).
bool keepsFramePointers(const std::string& path);

// Records `command` into `path`; replaces it. Throws ReportError when there is no recording after.
void record(const std::vector<std::string>& command, const std::vector<std::string>& furtherOptions,
            const std::string& path);

}  // namespace report
