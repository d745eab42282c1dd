// Runs tracemill-prepare in this process.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "prepare/Prepare.h"

struct Ending {
  int status = -1;
  std::string err;  // standard error
};

inline Ending prepareWith(std::vector<std::string> words) {
  words.insert(words.begin(), "tracemill-prepare");
  std::vector<char*> pointers;
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  testing::internal::CaptureStderr();
  const int status = prepare::run(static_cast<int>(words.size()), pointers.data());
  return {status, testing::internal::GetCapturedStderr()};
}
