// Pieces of which the recordings of the golden tests are made.
#pragma once

#include <cstdint>

#include "tests/support/PerfFileBuilder.h"

// Sample layouts, as sums of the PERF_SAMPLE bits.
inline constexpr uint64_t IP_TID_TIME_CPU = 0x1 | 0x2 | 0x4 | 0x80;
inline constexpr uint64_t WITH_CALLCHAIN = IP_TID_TIME_CPU | 0x20;
inline constexpr uint64_t WITH_IDENTIFIER = IP_TID_TIME_CPU | 0x10000;

inline constexpr uint64_t CONTEXT_KERNEL = static_cast<uint64_t>(-128);  // PERF_CONTEXT_KERNEL
inline constexpr uint64_t CONTEXT_USER = static_cast<uint64_t>(-512);    // PERF_CONTEXT_USER
inline constexpr uint64_t ALL_ONES = ~uint64_t{0};

// Nanoseconds.
inline constexpr uint64_t SECOND = 1'000'000'000;
inline constexpr uint64_t EIGHTH = SECOND / 8;

// A recording with one attribute of this layout.
inline PerfFileBuilder recordingOf(uint64_t sampleType) {
  PerfFileBuilder recording;
  recording.attribute(Attr().sampleType(sampleType));
  return recording;
}

// A sample at `time` nanoseconds.
inline SampleFields at(uint64_t time, uint64_t ip, uint32_t pid, uint32_t tid, uint32_t cpu = 0) {
  SampleFields fields;
  fields.ip = ip;
  fields.pid = pid;
  fields.tid = tid;
  fields.time = time;
  fields.cpu = cpu;
  return fields;
}

// A sample with a call chain and, for the layouts that have them, raw data.
inline SampleFields withChain(SampleFields fields, std::vector<uint64_t> chain) {
  fields.callchain = std::move(chain);
  return fields;
}

// The third sample of simpleRecording().
inline SampleFields thirdSample() {
  return withChain(at(3 * SECOND + 2 * EIGHTH, 0x8fff, 10, 10, 0), {0x8fff});
}

// Two threads of one process, in the program and in a library. `layout` may have more than the
// document shows.
inline PerfFileBuilder simpleRecordingWithoutThird(uint64_t layout) {
  PerfFileBuilder recording = recordingOf(layout);
  recording.comm(10, 10, "app").comm(10, 11, "worker");
  recording.mmap(10, 10, 0x8000, 0x1000, 0, "/nowhere/app");
  recording.mmap(10, 10, 0x40000000, 0x2000, 0, "/nowhere/libx.so");
  recording.mmap(20, 20, 0x8000, 0x1000, 0, "/nowhere/other");
  recording.sample(withChain(at(2 * SECOND, 0x8010, 10, 10, 0), {0x8010}));
  recording.sample(withChain(at(2 * SECOND + 4 * EIGHTH, 0x40000100, 10, 11, 1), {0x40000100}));
  return recording;
}

inline PerfFileBuilder simpleRecording(uint64_t layout) {
  return simpleRecordingWithoutThird(layout).sample(thirdSample());
}
